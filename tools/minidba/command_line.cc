// SPDX-License-Identifier: MIT
#include "tools/minidba/command_line.h"

#include "cli/command_line.h"
#include "qxapi/ascii.h"
#include "tools/minidba/file_names.h"

namespace rdm::minidba {
namespace {

constexpr char common_group[] = "Common options";

void declare_nothing(CLI::App &, Options &) {}

void declare_dry_run(CLI::App &verb, Options &options) {
  verb.add_flag("--dry-run", options.dry_run, "report what would be done, but change nothing");
}

/// is_file refuses "-": the result of the verb is written to standard output.
CLI::Validator is_file() {
  return {[](const std::string &text) -> std::string { return text == "-" ? "must be a file" : ""; }, ""};
}

/// is_given refuses an empty text, which a shell passes for a variable that is not set: it would count as no option.
CLI::Validator is_given() {
  return {[](const std::string &text) -> std::string { return text.empty() ? "must not be empty" : ""; }, ""};
}

void declare_writer(CLI::App &verb, Options &options) {
  declare_dry_run(verb, options);
  verb.add_option("--wait", options.wait, "wait at most this long for another writer; by default without limit")
      ->check(cli::is_seconds())
      ->type_name("SECONDS");
}

void declare_index(CLI::App &verb, Options &options) {
  declare_writer(verb, options);
  verb.add_flag("--accept-damage", options.accept_damage, "index damaged records as they are");
}

void declare_rejects(CLI::App &verb, Options &options) {
  declare_writer(verb, options);
  verb.add_option("--rejects", options.rejects, "write rejected objects to this file, unchanged")
      ->check(is_given())
      ->check(is_file())
      ->type_name("FILE");
}

void declare_update(CLI::App &verb, Options &options) {
  declare_rejects(verb, options);
  verb.add_option("FILE", options.inputs, "files to read; - is standard input, the default")->type_name("");
}

void declare_delete(CLI::App &verb, Options &options) {
  declare_writer(verb, options);
  verb.add_option("NUMBER|URL", options.arguments,
                  "descriptions to delete; - reads them from standard input, one a line")
      ->required();
}

void declare_output(CLI::App &verb, Options &options) {
  verb.add_option("FILE", options.file, "file to write; - is standard output, the default")->check(is_given());
}

void declare_export(CLI::App &verb, Options &options) {
  declare_dry_run(verb, options);
  declare_output(verb, options);
}

void declare_import(CLI::App &verb, Options &options) {
  declare_rejects(verb, options);
  verb.add_flag("--replace", options.replace, "replace an existing catalog");
  verb.add_flag("--no-header", options.no_header, "import a stream without an export header");
  verb.add_flag("--allow-empty", options.allow_empty, "import a stream without descriptions");
  verb.add_option("FILE", options.inputs, "file to read; - is standard input, the default")
      ->expected(0, 1)
      ->type_name("");
}

std::string lower_case(std::string name) {
  for (char &c : name) c = ascii::lower(c);
  return name;
}

void declare_get(CLI::App &verb, Options &options) {
  verb.add_option("NUMBER|URL", options.arguments,
                  "descriptions to print; numbers are decimal; - reads them from standard input, one a line")
      ->required();
}

void declare_list(CLI::App &verb, Options &options) {
  verb.add_option("--since", options.since, "only descriptions that have changed at this time or later")
      ->check(is_given())
      ->type_name("TIME");
  verb.add_option("--attributes", options.attributes, "only these attributes, and their numbered instances")
      ->delimiter(',')
      ->transform(lower_case)
      ->type_name("NAME,...");
  verb.add_option("--format", options.format, "soif, json or tsv (number, URL and attributes between tabs)")
      ->check(CLI::IsMember({"soif", "json", "tsv"}))
      ->type_name("FORMAT")
      ->default_str("soif");
}

/// need_index, check_export and need_nothing return a message if the command line lacks something; otherwise empty.
std::string need_index(const Options &options) { return options.index.empty() ? "--index is required" : ""; }

std::string check_export(const Options &options) {
  return options.json && options.file.empty() ? "--json needs a FILE to export to" : "";
}

std::string need_nothing(const Options &) { return ""; }

struct Row {
  const char *name;
  const char *purpose;
  Verb verb;
  void (*declare)(CLI::App &, Options &);  // the verb's own options
  std::string (*check)(const Options &);
};

constexpr Row rows[] = {
    {"update", "add and change descriptions (SOIF)", update, declare_update, need_nothing},
    {"expire", "delete expired descriptions", expire, declare_writer, need_nothing},
    {"index", "write the index", index, declare_index, need_index},
    {"unclassified", "print the URLs of descriptions without classification", unclassified, declare_nothing,
     need_index},
    {"get", "print descriptions by number or URL", get, declare_get, need_nothing},
    {"list", "print descriptions", list, declare_list, need_nothing},
    {"delete", "delete descriptions by number or URL", delete_descriptions, declare_delete, need_nothing},
    {"stats", "print figures about the catalog", stats, declare_nothing, need_nothing},
    {"verify", "check database, index and URL map", verify, declare_nothing, need_nothing},
    {"rebuild", "rewrite database and URL map from the records", rebuild, declare_writer, need_nothing},
    {"export", "write the whole catalog as one SOIF stream", export_catalog, declare_export, check_export},
    {"salvage", "write the readable descriptions of a damaged catalog as one SOIF stream", salvage, declare_output,
     check_export},
    {"import", "make a catalog from an export", import_catalog, declare_import, need_nothing},
};

/// meets_damage returns true if a verb has the option --skip-damaged.
bool meets_damage(std::string_view verb) { return verb != "verify" && verb != "salvage" && verb != "import"; }

/// HelpText writes the usage line with the common options before the verb.
class HelpText : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App *app, std::string) const override {
    const bool is_verb = app->get_parent() != nullptr;
    const std::string verb = is_verb ? app->get_name() : "VERB";
    const bool uses_catalog = verb != "help" && verb != "completion";
    std::string text = uses_catalog ? "Usage: minidba -d FILE " + verb + " [OPTIONS]" : "Usage: minidba " + verb;
    for (const CLI::Option *option : app->get_options([](const CLI::Option *o) { return o->get_positional(); }))
      text += ' ' + make_option_usage(option);
    return text + "\n";
  }
};

void declare_common(CLI::App &app, Options &options) {
  app.option_defaults()->group(common_group);
  app.add_option("-d,--database", options.database, "the catalog's database (required)")->type_name("FILE");
  app.add_option("-i,--index", options.index, "the catalog's index")->check(is_given())->type_name("FILE");
  app.add_flag("-q,--quiet", options.quiet, "no summary and no progress on standard error");
  app.add_flag("--json", options.json, "write the result as JSON to standard output");
}

/// common_help returns the help of the options that all verbs share.
std::string common_help(const CLI::App &app) {
  const auto common = app.get_options([](const CLI::Option *option) { return option->get_group() == common_group; });
  std::string text = HelpText().make_group(common_group, false, common);
  return text.substr(1, text.find_last_not_of('\n'));
}

void declare_verbs(CLI::App &app, Options &options) {
  for (const Row &row : rows) {
    CLI::App *verb = app.add_subcommand(row.name, row.purpose)->fallthrough();
    verb->group("Verbs")->option_defaults()->group("Options");
    verb->footer([&app] { return common_help(app); });
    row.declare(*verb, options);
    if (meets_damage(row.name))
      verb->add_flag("--skip-damaged", options.skip_damaged, "report damaged records and leave them out");
  }
}

const Row &row_of(const CLI::App &app) {
  const auto is_chosen = [&](const Row &row) { return app.got_subcommand(row.name); };
  return *std::find_if(std::begin(rows), std::end(rows), is_chosen);
}

void check(const CLI::App &app, const Row &row, Options &options) {
  if (options.file == "-") options.file.clear();
  const std::string missing = options.database.empty() ? "--database is required" : row.check(options);
  if (!missing.empty()) throw cli::misuse(app, missing);
  follow_links(options);
  check_files(options);
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("Maintains a catalog: its database, its index and the files beside them.", "minidba");
  app.formatter(std::make_shared<HelpText>());
  cli::declare_program(app);
  Command command;
  declare_common(app, command.options);
  declare_verbs(app, command.options);
  cli::declare_verbs(app);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  const Row &row = row_of(app);
  command.verb = row.verb;
  command.options.verb = row.name;
  check(app, row, command.options);
  return command;
}

}  // namespace rdm::minidba
