// SPDX-License-Identifier: MIT
#include "tools/rdmctl/command_line.h"

#include "cli/command_line.h"
#include "tools/rdmctl/import.h"

namespace rdm::rdmctl {
namespace {

void declare_import(CLI::App &app, Command &command) {
  CLI::App *verb = app.add_subcommand("import", "import submissions of a gatherer into a catalog");
  verb->group("Verbs");
  Options &options = command.options;
  verb->add_option("--config", options.config, "the service's configuration")->required()->type_name("FILE");
  verb->add_option("--csid", options.csid, "the catalog service to import into")->required()->type_name("CSID");
  verb->add_option("--from", options.from, "name of the gatherer, for the answer and the log")->type_name("SOURCE");
  verb->add_flag("--delete", options.deletes, "delete the descriptions that an rd-delete-response names");
  verb->add_option("FILE", options.files, "SOIF streams, or whole messages; - is standard input")->required();
  verb->callback([&command] { command.verb = import; });
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("The operator's tool of the resource-description service.", "rdmctl");
  cli::declare_program(app);
  Command command;
  declare_import(app, command);
  cli::declare_verbs(app);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  return command;
}

}  // namespace rdm::rdmctl
