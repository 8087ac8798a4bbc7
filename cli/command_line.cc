// SPDX-License-Identifier: MIT
#include "cli/command_line.h"

#include <ostream>
#include <sstream>
#include <vector>

#include "cli/completion.h"
#include "cli/grammar_of.h"
#include "cli/similar.h"

namespace rdm::cli {
namespace {

constexpr char help_verb[] = "help";
constexpr char completion_verb[] = "completion";

bool is_own_verb(const std::string &name) { return name == help_verb || name == completion_verb; }

std::vector<const CLI::App *> verbs_of(const CLI::App &app) {
  return app.get_subcommands([](const CLI::App *) { return true; });
}

std::vector<std::string> verb_names(const CLI::App &app) {
  std::vector<std::string> names;
  for (const CLI::App *verb : verbs_of(app)) names.push_back(verb->get_name());
  return names;
}

/// one_of lists the verbs except "help" and "completion".
std::string one_of(const CLI::App &app) {
  std::string list;
  for (const std::string &name : verb_names(app))
    if (!is_own_verb(name)) list += (list.empty() ? "one of " : ", ") + name;
  return list;
}

void add_option_names(const CLI::App &app, std::vector<std::string> &names) {
  for (const CLI::Option *option : app.get_options())
    names.insert(names.end(), option->get_lnames().begin(), option->get_lnames().end());
}

/// option_names returns the long options of the chosen verb and of the program, without hyphens.
std::vector<std::string> option_names(const CLI::App &app) {
  std::vector<std::string> names;
  for (const CLI::App *verb : app.get_subcommands()) add_option_names(*verb, names);
  add_option_names(app, names);
  return names;
}

std::string quoted(const std::string &word) { return '"' + word + '"'; }

std::string unknown_option(const CLI::App &app, const std::string &word) {
  const std::string name = word.substr(0, word.find('='));
  const std::string meant(nearest(name.substr(name.find_first_not_of('-')), option_names(app)));
  if (name == "--" + meant) return "option " + quoted(name) + " must follow the verb";
  return "unknown option " + quoted(name) + (meant.empty() ? "" : " (did you mean " + quoted("--" + meant) + "?)");
}

std::string unknown_verb(const CLI::App &app, const std::string &word) {
  const std::string guess = did_you_mean(word, verb_names(app));
  return "unknown verb " + quoted(word) + (guess.empty() ? ": not " + one_of(app) : guess);
}

std::string unknown_name(const CLI::App &app, const std::string &name) {
  return "unknown name " + quoted(name) + " in the options file" + did_you_mean(name, option_names(app));
}

bool is_option(const std::string &word) { return word.find_first_not_of('-') != std::string::npos && word[0] == '-'; }

std::string unexpected(const CLI::App &app, const std::string &word) {
  if (is_option(word)) return unknown_option(app, word);
  if (app.get_subcommands().empty() && !verbs_of(app).empty()) return unknown_verb(app, word);
  return "unexpected argument " + quoted(word);
}

/// CLI11 has no error type for an unknown name in an options file, but begins its text with this.
constexpr std::string_view unknown_in_file = "INI was not able to parse ";

std::string reason_of(const CLI::App &app, const CLI::ParseError &error) {
  const std::string text = error.what();
  if (text.starts_with(unknown_in_file)) return unknown_name(app, text.substr(unknown_in_file.size()));
  const std::vector<std::string> words = app.remaining(true);
  const bool is_extra = dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr;
  // If a required option is missing, name the unknown option that was probably meant as it.
  const bool is_missing = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
  for (const std::string &word : words)
    if (is_extra || (is_missing && is_option(word))) return unexpected(app, word);
  return text.substr(0, text.find('\n'));
}

const CLI::App *verb_named(const CLI::App &app, const std::string &name) {
  for (const CLI::App *verb : verbs_of(app))
    if (verb->get_name() == name) return verb;
  throw misuse(app, unknown_verb(app, name));
}

/// help_on returns the output of the verb "help": the help of the verb that it names, or of the program.
std::string help_on(const CLI::App &app, const CLI::App &help) {
  const CLI::Option *which = help.get_option("VERB");
  if (which->count() > 0) return verb_named(app, which->as<std::string>())->help(app.get_name());
  return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

struct Shell {
  std::string_view name;
  std::string (*completion)(const Grammar &);
};
constexpr Shell shells[] = {{"bash", bash_completion}, {"zsh", zsh_completion}, {"fish", fish_completion}};

const Shell &shell_named(const CLI::App &app, const std::string &name) {
  for (const Shell &shell : shells)
    if (shell.name == name) return shell;
  throw misuse(app,
               (name.empty() ? "a shell is required" : "unknown shell " + quoted(name)) + ": one of bash, zsh, fish");
}

/// asks_for_completion returns true if the command line of a program without verbs is "completion SHELL".
bool asks_for_completion(const CLI::App &app, int argc, char **argv) {
  return verbs_of(app).empty() && argc > 1 && std::string_view(argv[1]) == completion_verb;
}

/// write_answer writes the answer if the chosen verb is "help" or "completion", and returns true if so.
bool write_answer(CLI::App &app, std::ostream &out) {
  if (app.got_subcommand(help_verb)) {
    out << help_on(app, *app.get_subcommand(help_verb));
    return true;
  }
  if (!app.got_subcommand(completion_verb)) return false;
  const auto shell = app.get_subcommand(completion_verb)->get_option("SHELL")->as<std::string>();
  out << shell_named(app, shell).completion(grammar_of(app));
  return true;
}

}  // namespace

Misuse misuse(const CLI::App &app, const std::string &reason) {
  const std::vector<CLI::App *> chosen = app.get_subcommands();
  const bool is_verb = !chosen.empty() && chosen.front()->get_name() != help_verb;
  const std::string verb = is_verb ? " " + chosen.front()->get_name() : "";
  return Misuse(reason + "; see \"" + app.get_name() + verb + " --help\"");
}

void declare_program(CLI::App &app) {
  app.set_help_flag("-h,--help", "show this help");
  app.set_version_flag("--version", app.get_name() + " " RDM_VERSION, "show the version");
}

void declare_verbs(CLI::App &app, int manual_section) {
  const std::string &name = app.get_name();
  CLI::App *help = app.add_subcommand(help_verb, "show the help of a verb");
  help->group("Verbs");
  help->add_option("VERB", "the verb")->type_name("");
  CLI::App *completion = app.add_subcommand(completion_verb, "print the completion of a shell: bash, zsh or fish");
  completion->group("Verbs");
  completion->add_option("SHELL", "the shell")
      ->type_name("")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish"}));
  app.require_subcommand(0, 1);
  app.footer("\"" + name + " help VERB\" says more about a verb, " + name + "(" + std::to_string(manual_section) +
             ") about them all.");
}

CLI::Validator is_seconds() {
  const auto check = [](const std::string &text) -> std::string {
    double value = 0;
    const bool is_time = CLI::detail::lexical_cast(text, value) && value >= 0;
    return is_time ? "" : "not a number of seconds: " + text;
  };
  return {check, ""};
}

bool parse(CLI::App &app, int argc, char **argv, std::ostream &out) {
  if (asks_for_completion(app, argc, argv)) {
    out << shell_named(app, argc == 3 ? argv[2] : "").completion(grammar_of(app));
    return false;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() != 0) throw misuse(app, reason_of(app, error));
    std::ostringstream help;
    app.exit(error, help, help);
    out << help.str();
    return false;
  }
  if (verbs_of(app).empty()) return true;
  if (app.get_subcommands().empty()) throw misuse(app, "a verb is required: " + one_of(app));
  return !write_answer(app, out);
}

}  // namespace rdm::cli
