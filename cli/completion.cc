// SPDX-License-Identifier: MIT
#include "cli/completion.h"

namespace rdm::cli {

std::string joined(const std::vector<std::string> &words, const std::string &separator) {
  std::string text;
  for (const std::string &word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

std::string single_quoted(const std::string &text) {
  std::string quoted = "'";
  for (const char c : text) c == '\'' ? quoted += "'\\''" : quoted += c;
  return quoted + "'";
}

std::string function_of(const Grammar &grammar) {
  std::string name = "_" + grammar.program;
  for (char &c : name)
    if (c == '-') c = '_';
  return name;
}

std::vector<std::string> verb_names(const Grammar &grammar) {
  std::vector<std::string> names;
  for (const VerbGrammar &verb : grammar.verbs) names.push_back(verb.name);
  return names;
}

}  // namespace rdm::cli
