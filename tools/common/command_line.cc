#include "tools/common/command_line.h"

#include <ostream>
#include <sstream>
#include <string>

namespace tools {

void declare_program(CLI::App &app) {
  const std::string &name = app.get_name();
  app.set_help_flag("-h,--help", "show this help");
  app.set_version_flag("--version", RDM_VERSION, "show the version");
  app.require_subcommand(0, 1);
  app.footer("\"" + name + " VERB --help\" says more about a verb, " + name + "(8) about them all.");
}

bool parse(CLI::App &app, int argc, char **argv, std::ostream &out) {
  try {
    app.parse(argc, argv);
    return true;
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() != 0) throw;
    std::ostringstream help;
    app.exit(error, help, help);
    out << help.str();
    return false;
  }
}

}  // namespace tools
