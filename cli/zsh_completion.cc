// SPDX-License-Identifier: MIT
#include "cli/completion.h"

namespace rdm::cli {
namespace {

/// escaped returns a text with backslashes before the characters that end it in an argument of _arguments.
std::string escaped(const std::string &text, const std::string &special) {
  std::string result;
  for (const char c : text) {
    if (c == '\\' || special.find(c) != std::string::npos) result += '\\';
    result += c;
  }
  return result;
}

/// described returns ":NAME:ACTION" of a value.
std::string described(const Value &value) {
  return ":" + escaped(value.name, ":") + ":" + (value.choices.empty() ? "_files" : "(" + joined(value.choices) + ")");
}

/// option_words returns one argument of _arguments for each name of an option, which excludes the other names.
std::vector<std::string> option_words(const OptionGrammar &option) {
  std::vector<std::string> words;
  const std::string excluded = option.names.size() > 1 ? "(" + joined(option.names) + ")" : "";
  for (const std::string &name : option.names) {
    const std::string attached = !option.takes_value ? "" : name.starts_with("--") ? "=" : "+";
    std::string &word = words.emplace_back(excluded);
    word.append(name).append(attached).append("[").append(escaped(option.purpose, "[]:")).append("]");
    if (option.takes_value) word += described(option.value);
  }
  return words;
}

/// call returns a call of _arguments with the options of a verb and more words.
std::string call(const VerbGrammar &verb, const std::vector<std::string> &more, const std::string &indent,
                 const std::string &flags) {
  std::string text = indent + "_arguments" + flags;
  const auto add = [&](const std::string &word) { text += " \\\n" + indent + "  " + single_quoted(word); };
  for (const OptionGrammar &option : verb.options)
    for (const std::string &word : option_words(option)) add(word);
  for (const std::string &word : more) add(word);
  return text;
}

std::vector<std::string> argument_words(const VerbGrammar &verb) {
  std::vector<std::string> words;
  for (const auto &[value, repeats] : verb.arguments) words.push_back((repeats ? "*" : "") + described(value));
  return words;
}

std::string simple_body(const Grammar &grammar) {
  return call(grammar.start, argument_words(grammar.start), "  ", "") + "\n";
}

std::string body_with_verbs(const Grammar &grammar) {
  std::string text = "  local curcontext=$curcontext state line\n  typeset -A opt_args\n  local -a verbs=(\n";
  for (const VerbGrammar &verb : grammar.verbs)
    text += "    " + single_quoted(escaped(verb.name, ":") + ":" + verb.purpose) + "\n";
  text += "  )\n" + call(grammar.start, {"1: :->verb", "*:: :->rest"}, "  ", " -C") + " && return\n";
  text += "  case $state in\n    verb) _describe verb verbs ;;\n    rest)\n      case $line[1] in\n";
  for (const VerbGrammar &verb : grammar.verbs)
    text += "        " + verb.name + ")\n" + call(verb, argument_words(verb), "          ", "") + " ;;\n";
  return text + "      esac ;;\n  esac\n";
}

}  // namespace

std::string zsh_completion(const Grammar &grammar) {
  const std::string &program = grammar.program, function = function_of(grammar);
  std::string script = "#compdef " + program + "\n# Completion of " + program + " for zsh, as \"" + program +
                       " completion zsh\" prints it.\n" + function + "() {\n";
  script += grammar.verbs.empty() ? simple_body(grammar) : body_with_verbs(grammar);
  // zsh loads a file of its function path as the body of the function, and anybody else sources it.
  return script + "}\nif [[ $funcstack[1] == " + function + " ]]; then\n  " + function + " \"$@\"\nelse\n  compdef " +
         function + " " + program + "\nfi\n";
}

}  // namespace rdm::cli
