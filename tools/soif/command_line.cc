// SPDX-License-Identifier: MIT
#include "tools/soif/command_line.h"

#include "cli/command_line.h"
#include "tools/common/distinct_files.h"

namespace rdm::soif_tool {
namespace {

/// is_given refuses an empty text, which a shell passes for a variable that is not set.
CLI::Validator is_given() {
  return {[](const std::string &text) -> std::string { return text.empty() ? "must not be empty" : ""; }, ""};
}

void declare_input(CLI::App &verb, Options &options) {
  verb.add_option("FILE", options.inputs, "file to read; - is standard input, the default")
      ->expected(0, 1)
      ->check(is_given())
      ->type_name("");
}

void declare_writer(CLI::App &verb, Options &options) {
  verb.add_option("-o,--output", options.output, "file to write; - is standard output, the default")
      ->check(is_given())
      ->type_name("FILE");
  verb.add_option("--rejects", options.rejects, "write rejected parts of the input to this file, unchanged")
      ->check(is_given())
      ->type_name("FILE");
}

void declare_format(CLI::App &verb, Options &options) {
  declare_writer(verb, options);
  declare_input(verb, options);
}

void declare_check(CLI::App &verb, Options &options) {
  verb.add_option("FILE", options.inputs, "files to read; - is standard input, the default")
      ->check(is_given())
      ->type_name("");
}

void declare_edit(CLI::App &verb, Options &options) {
  verb.add_option("DATABASE", options.database, "the catalog's database")->required()->check(is_given())->type_name("");
  verb.add_option("URL", options.url, "the URL of the description")->required()->type_name("");
}

void declare_conversion(CLI::App &verb, Options &options, const std::vector<std::string> &formats) {
  verb.add_option("FORMAT", options.format, "the other format")
      ->required()
      ->check(CLI::IsMember(formats))
      ->type_name("");
  verb.add_option("--map", options.map, "file with lines \"attribute = name in the format\"")
      ->check(is_given())
      ->type_name("FILE");
}

void declare_from(CLI::App &verb, Options &options) {
  declare_conversion(verb, options, {"json", "ndjson", "csv", "tsv", "dc-xml", "oai-dc"});
  verb.add_flag("--oai-identifiers", options.oai_identifiers, "oai-dc: take the identifier of a record for its URL");
  verb.add_option("--deletions", options.deletions, "oai-dc: write the identifiers of deleted records to this file")
      ->check(is_given())
      ->type_name("FILE");
  verb.add_option("--template", options.template_name, "template of descriptions without one; DOCUMENT by default")
      ->check(is_given())
      ->type_name("NAME");
  declare_format(verb, options);
}

void declare_to(CLI::App &verb, Options &options) {
  declare_conversion(verb, options, {"json", "ndjson", "csv", "tsv", "dc-xml"});
  verb.add_flag("--gather", options.gathers, "put numbered attributes together, as those of a catalog are not");
  declare_format(verb, options);
}

struct Row {
  const char *name;
  const char *purpose;
  Verb verb;
  void (*declare)(CLI::App &, Options &);  // the verb's own options
};

constexpr Row rows[] = {
    {"fmt", "write descriptions with the right byte counts", format, declare_format},
    {"from", "convert another format to SOIF", from, declare_from},
    {"to", "convert SOIF to another format", to, declare_to},
    {"edit", "change a description of a catalog in an editor", edit, declare_edit},
    {"check", "report faults of descriptions, with file, line and column", check, declare_check},
};

void declare_common(CLI::App &verb, Options &options) {
  verb.add_flag("--json", options.json, "write messages as JSON, one object a line");
  verb.add_flag("-q,--quiet", options.quiet, "no summary and no progress on standard error");
}

void declare_verb(CLI::App &app, const Row &row, Command &command) {
  CLI::App *verb = app.add_subcommand(row.name, row.purpose);
  verb->group("Verbs");
  row.declare(*verb, command.options);
  declare_common(*verb, command.options);
  verb->callback([&row, &command] {
    command.verb = row.verb;
    command.options.verb = row.name;
  });
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("Formats, checks, edits and converts resource descriptions.", "soif");
  cli::declare_program(app);
  Command command;
  for (const Row &row : rows) declare_verb(app, row, command);
  cli::declare_verbs(app, 1);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  const Options &options = command.options;
  tools::require_distinct({{"--output", options.output},
                           {"--rejects", options.rejects},
                           {"--deletions", options.deletions},
                           {"--map", options.map}});
  return command;
}

}  // namespace rdm::soif_tool
