// SPDX-License-Identifier: MIT
#include "cli/grammar_of.h"

namespace rdm::cli {
namespace {

/// choices_of returns the words that an option accepts. CLI11 shows them only in its help: "FORMAT:{soif,json,tsv}".
std::vector<std::string> choices_of(const CLI::Option &option) {
  const std::string type = option.get_type_name();
  const size_t open = type.rfind('{'), close = type.rfind('}');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  return CLI::detail::split(type.substr(open + 1, close - open - 1), ',');
}

Value value_of(const CLI::Option &option) {
  const std::string type = option.get_type_name();
  const std::string name = option.get_positional() ? option.get_name(true) : type.substr(0, type.find(":{"));
  return {name, choices_of(option)};
}

OptionGrammar grammar_of(const CLI::Option &option) {
  OptionGrammar grammar;
  for (const std::string &name : option.get_snames()) grammar.names.push_back("-" + name);
  for (const std::string &name : option.get_lnames()) grammar.names.push_back("--" + name);
  const std::string &purpose = option.get_description();
  grammar.purpose = purpose.substr(0, purpose.find_first_of(";\n"));
  grammar.takes_value = option.get_items_expected_max() > 0;
  if (grammar.takes_value) grammar.value = value_of(option);
  return grammar;
}

VerbGrammar part_of(const CLI::App &app) {
  VerbGrammar part{app.get_name(), app.get_description(), {}, {}};
  for (const CLI::Option *option : app.get_options()) {
    if (option->get_positional())
      part.arguments.push_back({value_of(*option), option->get_expected_max() > 1});
    else
      part.options.push_back(grammar_of(*option));
  }
  return part;
}

bool has(const VerbGrammar &verb, const OptionGrammar &option) {
  const auto is_same = [&](const OptionGrammar &other) { return other.names == option.names; };
  return std::any_of(verb.options.begin(), verb.options.end(), is_same);
}

/// add_common adds the options that a verb leaves to the program.
void add_common(VerbGrammar &verb, const VerbGrammar &start) {
  for (const OptionGrammar &option : start.options)
    if (!has(verb, option) && option.names.back() != "--version") verb.options.push_back(option);
}

void name_verbs(Grammar &grammar) {
  for (VerbGrammar &verb : grammar.verbs)
    for (ArgumentGrammar &argument : verb.arguments)
      if (argument.value.name == "VERB")
        for (const VerbGrammar &other : grammar.verbs) argument.value.choices.push_back(other.name);
}

}  // namespace

Grammar grammar_of(const CLI::App &app) {
  Grammar grammar{app.get_name(), part_of(app), {}};
  grammar.start.name.clear();
  for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
    grammar.verbs.push_back(part_of(*verb));
    if (verb->get_fallthrough()) add_common(grammar.verbs.back(), grammar.start);
  }
  name_verbs(grammar);
  return grammar;
}

}  // namespace rdm::cli
