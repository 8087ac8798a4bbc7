// SPDX-License-Identifier: MIT
#include "tools/rdmctl/command_line.h"

#include "cli/command_line.h"
#include "tools/rdmctl/import.h"
#include "tools/rdmctl/publishing.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

constexpr char config_text[] = "the service's configuration; also before the verb";
constexpr char target_text[] = "catalog service, or path of a database";

CLI::Validator is_limit() {
  const auto check = [](const std::string &text) -> std::string {
    try {
      Limit limit(text);
      return "";
    } catch (const catalog::Failure &failure) {
      return failure.what();
    }
  };
  return {check, ""};
}

void declare_target(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->type_name("FILE");
  verb.add_option("CSID|DATABASE", options.target, target_text)->required();
}

void declare_json(CLI::App &verb, Options &options) {
  verb.add_flag("--json", options.json, "write the result as JSON");
}

void declare_wait(CLI::App &verb, Options &options) {
  verb.add_option("--wait", options.wait, "wait at most this long for another writer; by default without limit")
      ->check(cli::is_seconds())
      ->type_name("SECONDS");
}

void declare_import(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->required()->type_name("FILE");
  verb.add_option("--csid", options.csid, "the catalog service to import into")->required()->type_name("CSID");
  verb.add_option("--from", options.from, "name of the gatherer, for the answer and the log")->type_name("SOURCE");
  verb.add_flag("--delete", options.deletes, "delete the descriptions that an rd-delete-response names");
  verb.add_option("FILE", options.files, "SOIF streams, or whole messages; - is standard input")->required();
  declare_json(verb, options);
}

void declare_publish(CLI::App &verb, Options &options) {
  declare_target(verb, options);
  CLI::Option *files = verb.add_option("FILE", options.files, "SOIF streams; - is standard input");
  verb.add_option("--from", options.from, "name of the gatherer, for the report")->type_name("SOURCE");
  CLI::Option *full = verb.add_flag("--full-feed", options.full_feed, "delete the descriptions that the files lack");
  verb.add_option("--max-delete", options.max_delete, "change nothing if more than these would be deleted")
      ->check(is_limit())
      ->needs(full)
      ->type_name("NUMBER|SHARE%")
      ->default_str("10%");
  CLI::Option *validate = verb.add_flag("--validate", options.validate,
                                        "warn of descriptions that do not fit the service's schema and taxonomy");
  verb.add_flag("--strict", options.strict, "reject them")->needs(validate);
  verb.add_option("--spool", options.spool,
                  "publish each finished file in this directory, and move it to done/ or "
                  "rejected/ there")
      ->excludes(files)
      ->type_name("DIRECTORY");
  declare_wait(verb, options);
  verb.add_flag("--dry-run", options.dry_run, "report what would be done, but change nothing");
  verb.add_flag("-q,--quiet", options.quiet, "show no progress");
  declare_json(verb, options);
}

void declare_imports(CLI::App &verb, Options &options) {
  declare_target(verb, options);
  verb.add_option("--last", options.last, "only so many, the newest")
      ->check(CLI::Range(1L, 1000000000L))
      ->type_name("NUMBER");
  declare_json(verb, options);
}

void declare_diff(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->type_name("FILE");
  verb.add_option("A", options.target, target_text)->required()->type_name("");
  verb.add_option("B", options.other, "the other one, or a backup")->required()->type_name("");
  verb.add_flag("--times", options.times, "compare the times of change too");
  verb.add_flag("-q,--quiet", options.quiet, "show no progress");
  declare_json(verb, options);
}

void declare_backup(CLI::App &verb, Options &options) {
  declare_target(verb, options);
  verb.add_option("FILE", options.other, "the backup")->required()->type_name("");
  declare_wait(verb, options);
  verb.add_flag("-q,--quiet", options.quiet, "show no progress");
  declare_json(verb, options);
}

void declare_restore(CLI::App &verb, Options &options) {
  declare_backup(verb, options);
  verb.add_flag("--dry-run", options.dry_run, "only check the backup");
}

/// declare_service adds --config for a verb that needs it.
void declare_service(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->required()->type_name("FILE");
}

void declare_catalogs(CLI::App &verb, Options &options) {
  declare_service(verb, options);
  declare_json(verb, options);
}

void declare_check(CLI::App &verb, Options &options) {
  declare_service(verb, options);
  CLI::Option *monitor =
      verb.add_flag("--monitor", options.monitor,
                    "write a line for monitoring, and exit with 0 (OK), 1 (warning), 2 (critical), 3 "
                    "(unknown)");
  verb.add_flag("--json", options.json, "write the result as JSON")->excludes(monitor);
}

void declare_preview(CLI::App &verb, Options &options) {
  declare_service(verb, options);
  verb.add_option("CSID", options.csid, "the catalog service")->required()->type_name("");
  verb.add_option("--since", options.since, "only descriptions that have changed since this time")->type_name("TIME");
  verb.add_option("--attributes", options.attributes, "only these attributes")->delimiter(',')->type_name("NAME,...");
  verb.add_option("--hits", options.hits, "at most so many descriptions")
      ->check(CLI::Range(1L, 2147483647L))
      ->type_name("NUMBER");
  declare_json(verb, options);
}

void declare_harvesters(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->type_name("FILE");
  verb.add_option("LOG", options.files, "transaction logs; by default the one of the configuration")->type_name("");
  verb.add_option("--since", options.since, "only lines of this time or later")->type_name("TIME");
  declare_json(verb, options);
}

void declare_translate(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->type_name("FILE");
  verb.add_option("CSID|FILE", options.target, "catalog service, or its schema description")->required()->type_name("");
  verb.add_option("NAME", options.attributes, "attributes")->required()->delimiter(',')->type_name("");
  declare_json(verb, options);
}

void declare_taxonomy(CLI::App &verb, Options &options) {
  verb.add_option("--config", options.config, config_text)->type_name("FILE");
  verb.add_option("ACTION", options.action, "show, find or check")
      ->required()
      ->check(CLI::IsMember({"show", "find", "check"}))
      ->type_name("");
  verb.add_option("CSID|FILE", options.target, "catalog service, or its taxonomy description")
      ->required()
      ->type_name("");
  verb.add_option("TEXT", options.text, "find: part of an id or description")->type_name("");
  declare_json(verb, options);
}

void declare_describe(CLI::App &verb, Options &options) {
  verb.add_option("KIND", options.action, "server, schema or taxonomy")
      ->required()
      ->check(CLI::IsMember({"server", "schema", "taxonomy"}))
      ->type_name("");
  verb.add_option("FILE", options.files, "plain text; - is standard input, the default")->expected(0, 1)->type_name("");
  verb.add_option("--csid", options.csid, "the catalog service that is described")->type_name("CSID");
  verb.add_option("-o,--output", options.other, "file to write; - is standard output, the default")->type_name("FILE");
}

struct Row {
  const char *name;
  const char *purpose;
  Verb verb;
  void (*declare)(CLI::App &, Options &);
};

constexpr Row rows[] = {
    {"import", "import submissions of a gatherer into a catalog", import, declare_import},
    {"publish", "make files the next state of a catalog: update, expire and index in one", publish, declare_publish},
    {"imports", "show what was published, by whom, from where and with what result", imports, declare_imports},
    {"diff", "compare two catalogs, or a catalog and a backup", diff, declare_diff},
    {"backup", "write a catalog to one file", backup, declare_backup},
    {"restore", "make a backup the state of a catalog, with a new index", restore, declare_restore},
    {"catalogs", "list the configured catalogs", catalogs, declare_catalogs},
    {"check", "check the configuration, all that it names, and every record", check, declare_check},
    {"preview", "tell how many descriptions and bytes a query would send", preview, declare_preview},
    {"harvesters", "tell from the transaction log who harvests what, and with what result", harvesters,
     declare_harvesters},
    {"translate", "translate attributes to columns and a join, by a schema description", translate, declare_translate},
    {"taxonomy", "show a taxonomy, find classes, or check it and its use", taxonomy, declare_taxonomy},
    {"describe", "make a server, schema or taxonomy description of plain text", describe, declare_describe},
};

/// declare_config adds --config before the verb: then no verb requires its own.
void declare_config(CLI::App &app, Options &options) {
  const auto take = [&](const std::string &file) {
    options.config = file;
    for (CLI::App *verb : app.get_subcommands())
      if (CLI::Option *own = verb->get_option_no_throw("--config")) own->required(false);
  };
  app.add_option_function<std::string>("--config", take, "the service's configuration")->type_name("FILE");
}

void check_words(const CLI::App &app, const Options &options) {
  if (app.got_subcommand("publish") && options.files.empty() && options.spool.empty())
    throw cli::misuse(app, "FILE or --spool is required");
  if (app.got_subcommand("taxonomy") && (options.action == "find") == options.text.empty())
    throw cli::misuse(app, options.text.empty() ? "TEXT is required" : "unexpected argument \"" + options.text + '"');
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("The operator's tool of the resource-description service.", "rdmctl");
  cli::declare_program(app);
  Command command;
  declare_config(app, command.options);
  for (const Row &row : rows) {
    CLI::App *verb = app.add_subcommand(row.name, row.purpose);
    verb->group("Verbs");
    row.declare(*verb, command.options);
    verb->callback([&command, &row] { command.verb = row.verb; });
  }
  cli::declare_verbs(app);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  check_words(app, command.options);
  return command;
}

}  // namespace rdm::rdmctl
