// SPDX-License-Identifier: MIT
#include "tools/rdm/command_line.h"

#include "cli/command_line.h"
#include "qxapi/ascii.h"

namespace rdm::client {
namespace {

constexpr char common_group[] = "Common options";

std::string check_given(const std::string &text) { return text.empty() ? "must not be empty" : ""; }

/// check_url requires a scheme that the client speaks, before anything is sent.
std::string check_url(const std::string &text) {
  const bool is_known = ascii::istarts_with(text, "http://") || ascii::istarts_with(text, "https://");
  const bool has_host = text.find_first_not_of('/', text.find("://") + 3) != std::string::npos;
  return is_known && has_host ? "" : "not a URL such as http://HOST:PORT/rdm: " + text;
}

std::string check_seconds(const std::string &text) {
  double value = 0;
  const bool is_time = CLI::detail::lexical_cast(text, value) && value >= 0;
  return is_time ? "" : "not a number of seconds: " + text;
}

std::string check_count(const std::string &text) {
  int64_t value = 0;
  const bool is_count = CLI::detail::lexical_cast(text, value) && value > 0;
  return is_count ? "" : "not a number from 1: " + text;
}

CLI::Validator validator(std::string (*check)(const std::string &)) { return {check, ""}; }

std::string lower_case(std::string name) {
  for (char &c : name) c = ascii::lower(c);
  return name;
}

void declare_url(CLI::App &verb, Options &options) {
  verb.add_option("URL", options.url, "the service, as http://HOST:PORT/rdm")
      ->required()
      ->check(validator(check_url))
      ->type_name("");
}

void declare_nothing(CLI::App &, Options &) {}

void declare_describe(CLI::App &verb, Options &options) {
  verb.add_option("WHAT", options.what, "server, schema or taxonomy")
      ->required()
      ->check(CLI::IsMember({"server", "schema", "taxonomy"}))
      ->type_name("");
}

void declare_get(CLI::App &verb, Options &options) {
  verb.add_option("URL-OF-RD", options.urls, "URLs of the descriptions")->required()->type_name("");
}

void declare_harvest(CLI::App &verb, Options &options) {
  verb.add_option("--since", options.since, "only what has changed at this time or later, or since the last harvest")
      ->check(validator(check_given))
      ->type_name("TIME|last");
  verb.add_option("--attributes", options.attributes, "only these attributes, and their numbered instances")
      ->delimiter(',')
      ->transform(lower_case)
      ->type_name("NAME,...");
  verb.add_option("--limit", options.limit, "at most so many descriptions")
      ->check(validator(check_count))
      ->type_name("N");
  verb.add_option("--format", options.format, "soif, json (an array), ndjson (a line each) or csv")
      ->check(CLI::IsMember({"soif", "json", "ndjson", "csv"}))
      ->type_name("FORMAT")
      ->default_str("soif");
  verb.add_option("-o,--output", options.output, "file to write; - is standard output, the default")
      ->check(validator(check_given))
      ->type_name("FILE");
  verb.add_flag("--believe", options.believe, "accept that the server has no descriptions any more");
}

void declare_mirror(CLI::App &verb, Options &options) {
  verb.add_option("TARGET", options.target, "a database, or a directory if it is one or ends in a slash")
      ->required()
      ->check(validator(check_given))
      ->type_name("");
  verb.add_option("--full-every", options.full_every, "compare the whole list, to notice what is gone, so often")
      ->check(validator(check_seconds))
      ->type_name("SECONDS")
      ->default_str("86400");
  verb.add_flag("--believe", options.believe, "accept that more than half of what is held is gone");
}

struct Row {
  const char *name;
  const char *purpose;
  Verb verb;
  void (*declare)(CLI::App &, Options &);  // the verb's own options, after the URL
};

constexpr Row rows[] = {
    {"status", "print what a server says of itself", status, declare_nothing},
    {"describe", "print the server, schema or taxonomy description", describe, declare_describe},
    {"get", "print descriptions by their URLs", get, declare_get},
    {"harvest", "print all descriptions, or those that have changed", harvest, declare_harvest},
    {"mirror", "make a database or a directory equal to a catalog", mirror, declare_mirror},
};

void declare_common(CLI::App &app, Options &options) {
  app.option_defaults()->group(common_group);
  app.add_option("--csid", options.csid, "the catalog service; by default that of the server")->type_name("CSID");
  app.add_option("--state", options.state, "directory of what is remembered; by default $XDG_STATE_HOME/rdm")
      ->check(validator(check_given))
      ->type_name("DIRECTORY");
  app.add_option("--retries", options.retries, "further attempts after a failed one")
      ->check(CLI::Range(0, 1000))
      ->type_name("N")
      ->default_str("5");
  app.add_option("--retry-delay", options.retry_delay, "pause before the second attempt; it doubles each time")
      ->check(validator(check_seconds))
      ->type_name("SECONDS")
      ->default_str("1");
  app.add_option("--timeout", options.timeout, "give up an exchange after so long without a byte")
      ->check(validator(check_seconds))
      ->type_name("SECONDS")
      ->default_str("60");
  app.add_option("--ca-file", options.ca_file, "certificates to trust instead of the system's")
      ->check(CLI::ExistingFile)
      ->type_name("FILE");
  app.add_flag("-q,--quiet", options.quiet, "no summary, no progress and no word of retries");
  app.add_flag("-v,--verbose", options.verbose, "a line for each exchange");
  app.add_flag("--json", options.json, "write the result as JSON to standard output");
}

/// HelpText writes the usage line in the order in which words are given.
class HelpText : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App *app, std::string) const override {
    const bool is_verb = app->get_parent() != nullptr;
    std::string text = "Usage: rdm " + (is_verb ? app->get_name() : "VERB URL");
    for (const CLI::Option *option : app->get_options([](const CLI::Option *o) { return o->get_positional(); }))
      text += ' ' + make_option_usage(option);
    return text + " [OPTIONS]\n";
  }
};

/// common_help returns the help of the options that all verbs share.
std::string common_help(const CLI::App &app) {
  const auto common = app.get_options([](const CLI::Option *option) { return option->get_group() == common_group; });
  std::string text = HelpText().make_group(common_group, false, common);
  return text.substr(1, text.find_last_not_of('\n'));
}

void declare_rows(CLI::App &app, Options &options) {
  for (const Row &row : rows) {
    CLI::App *verb = app.add_subcommand(row.name, row.purpose)->fallthrough();
    verb->group("Verbs")->option_defaults()->group("Options");
    verb->footer([&app] { return common_help(app); });
    declare_url(*verb, options);
    row.declare(*verb, options);
  }
}

void check(const CLI::App &app, Options &options) {
  if (options.output == "-") options.output.clear();
  if (options.verb == "harvest" && options.json && options.output.empty())
    throw cli::misuse(app, "--json needs a file to harvest to (--output)");
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("Asks a server for its catalog: status, descriptions, harvests.", "rdm");
  app.formatter(std::make_shared<HelpText>());
  cli::declare_program(app);
  Command command;
  declare_common(app, command.options);
  declare_rows(app, command.options);
  cli::declare_verbs(app, 1);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  for (const Row &row : rows) {
    if (!app.got_subcommand(row.name)) continue;
    command.verb = row.verb;
    command.options.verb = row.name;
  }
  check(app, command.options);
  return command;
}

}  // namespace rdm::client
