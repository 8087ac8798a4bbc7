// SPDX-License-Identifier: MIT
#include <functional>

#include "cli/completion.h"

namespace rdm::cli {
namespace {

using Words = std::vector<std::string>;

/// bash splits "--format=json" into three words, the second of which is "=".
constexpr char scan_start[] = R"(  local word=${COMP_WORDS[COMP_CWORD]} verb= option= position=0 words= files= i
  for ((i = 1; i < COMP_CWORD; i++)); do
    if [[ ${COMP_WORDS[i]} == = ]]; then
      continue
    elif [[ -n $option ]]; then
      option=
      continue
    fi
    case $verb,${COMP_WORDS[i]} in
)";
constexpr char scan_end[] = R"(      *,-?*) ;;
)";
constexpr char scan_verb[] = R"(      ,*) verb=${COMP_WORDS[i]} ;;
)";
constexpr char choose_option[] = R"(      *) ((++position)) ;;
    esac
  done
  [[ $word == = ]] && word=
  if [[ -z $option && $word == -* ]]; then
    case $verb in
)";
constexpr char choose_value[] = R"(    esac
  else
    case $verb,${option:-$position} in
)";
constexpr char reply[] = R"(    esac
  fi
  [[ -n $files ]] && compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen ${files:+-f} -W "$words" -- "$word")
}
)";

void each_verb(const Grammar &grammar, const std::function<void(const VerbGrammar &)> &visit) {
  visit(grammar.start);
  for (const VerbGrammar &verb : grammar.verbs) visit(verb);
}

/// patterns_of returns the patterns of case for the names of an option after a verb.
Words patterns_of(const VerbGrammar &verb, const OptionGrammar &option) {
  Words patterns;
  for (const std::string &name : option.names) patterns.push_back(verb.name + "," + name);
  return patterns;
}

std::string row(const Words &patterns, const std::string &action) {
  return patterns.empty() ? "" : "      " + joined(patterns, " | ") + ") " + action + " ;;\n";
}

std::string words_are(const Words &words) { return "words=" + single_quoted(joined(words)); }

std::string options_with_value(const VerbGrammar &verb) {
  Words patterns;
  for (const OptionGrammar &option : verb.options) {
    const Words more = patterns_of(verb, option);
    if (option.takes_value) patterns.insert(patterns.end(), more.begin(), more.end());
  }
  return row(patterns, "option=${COMP_WORDS[i]}");
}

std::string option_names(const VerbGrammar &verb) {
  Words names;
  for (const OptionGrammar &option : verb.options) names.insert(names.end(), option.names.begin(), option.names.end());
  return row({verb.name.empty() ? "''" : verb.name}, words_are(names));
}

std::string option_values(const VerbGrammar &verb) {
  std::string rows;
  Words files;
  for (const OptionGrammar &option : verb.options) {
    const Words patterns = patterns_of(verb, option);
    if (!option.value.choices.empty())
      rows += row(patterns, words_are(option.value.choices));
    else if (option.takes_value)
      files.insert(files.end(), patterns.begin(), patterns.end());
  }
  return rows + row(files, "files=1");
}

std::string arguments(const VerbGrammar &verb) {
  std::string rows;
  for (size_t i = 0; i < verb.arguments.size(); ++i) {
    const auto &[value, repeats] = verb.arguments[i];
    const std::string position = repeats ? "*" : std::to_string(i);
    rows += row({verb.name + "," + position}, value.choices.empty() ? "files=1" : words_are(value.choices));
  }
  return rows;
}

}  // namespace

std::string bash_completion(const Grammar &grammar) {
  const std::string &program = grammar.program, function = function_of(grammar);
  std::string script = "# Completion of " + program + " for bash, as \"" + program + " completion bash\" prints it.\n";
  script += function + "() {\n" + scan_start;
  const auto add = [&](std::string (*part)(const VerbGrammar &)) {
    each_verb(grammar, [&](const VerbGrammar &verb) { script += part(verb); });
  };
  add(options_with_value);
  script += scan_end;
  if (!grammar.verbs.empty()) script += scan_verb;
  script += choose_option;
  add(option_names);
  script += choose_value;
  add(option_values);
  if (!grammar.verbs.empty()) script += row({",0"}, words_are(verb_names(grammar)));
  add(arguments);
  return script + reply + "complete -F " + function + " " + program + "\n";
}

}  // namespace rdm::cli
