// SPDX-License-Identifier: MIT
#include "cli/completion.h"

namespace rdm::cli {
namespace {

/// fish_quoted returns the text as one word. In fish, a backslash escapes within single quotes.
std::string fish_quoted(const std::string &text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') result += '\\';
    result += c;
  }
  return result + "'";
}

std::string only_if(const std::string &condition) { return condition.empty() ? "" : " -n " + fish_quoted(condition); }

/// names_of returns the names of an option as arguments of complete.
std::string names_of(const OptionGrammar &option) {
  std::string text;
  for (const std::string &name : option.names)
    text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  return text;
}

std::string value_of(const Value &value) {
  return value.choices.empty() ? " -r -F" : " -x -a " + fish_quoted(joined(value.choices));
}

std::string lines_of(const std::string &complete, const std::string &condition, const VerbGrammar &verb) {
  std::string lines;
  for (const OptionGrammar &option : verb.options)
    lines += complete + only_if(condition) + names_of(option) + (option.takes_value ? value_of(option.value) : "") +
             " -d " + fish_quoted(option.purpose) + "\n";
  for (const auto &[value, repeats] : verb.arguments)
    lines += complete + only_if(condition) +
             (value.choices.empty() ? " -F" : " -a " + fish_quoted(joined(value.choices))) + "\n";
  return lines;
}

}  // namespace

std::string fish_completion(const Grammar &grammar) {
  const std::string &program = grammar.program, complete = "complete -c " + program;
  const std::string seen = "__fish_seen_subcommand_from ";
  const std::string before = grammar.verbs.empty() ? "" : "not " + seen + joined(verb_names(grammar));
  std::string script = "# Completion of " + program + " for fish, as \"" + program + " completion fish\" prints it.\n";
  script += complete + " -f\n" + lines_of(complete, before, grammar.start);
  for (const VerbGrammar &verb : grammar.verbs)
    script += complete + only_if(before) + " -a " + verb.name + " -d " + fish_quoted(verb.purpose) + "\n";
  for (const VerbGrammar &verb : grammar.verbs) script += lines_of(complete, seen + verb.name, verb);
  return script;
}

}  // namespace rdm::cli
