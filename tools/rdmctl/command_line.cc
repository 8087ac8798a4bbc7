#include "tools/rdmctl/command_line.h"

#include "tools/common/command_line.h"
#include "tools/minidba/failure.h"
#include "tools/rdmctl/import.h"

namespace rdmctl {
namespace {

using minidba::Failure;

void declare_import(CLI::App &app, Command &command) {
  CLI::App *verb = app.add_subcommand("import", "hand deliveries of a gatherer to a catalog service");
  Options &options = command.options;
  verb->add_option("--config", options.config, "the service's configuration")->required()->type_name("FILE");
  verb->add_option("--csid", options.csid, "the catalog service to import into")->required()->type_name("CSID");
  verb->add_option("--from", options.from, "who delivers, for the answer and the log")->type_name("SOURCE");
  verb->add_option("FILE", options.files, "SOIF streams, or whole messages; - is standard input")->required();
  verb->callback([&command] { command.verb = import; });
}

std::string refusal(const CLI::App &app, const CLI::ParseError &error) {
  const std::vector<std::string> words = app.remaining();
  if (app.get_subcommands().empty() && !words.empty() && words.front()[0] != '-')
    return "unknown verb \"" + words.front() + "\": not one of import";
  const std::string text = error.what();
  return text.substr(0, text.find('\n'));
}

}  // namespace

std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("The operator's tool of the resource-description service.", "rdmctl");
  tools::declare_program(app);
  Command command;
  declare_import(app, command);
  try {
    if (!tools::parse(app, argc, argv, out)) return std::nullopt;
  } catch (const CLI::ParseError &error) {
    throw Failure(refusal(app, error));
  }
  if (command.verb == nullptr) throw Failure("a verb is required: one of import");
  return command;
}

}  // namespace rdmctl
