#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/minidba/failure.h"
#include "tools/minidba/index.h"
#include "tools/minidba/update.h"

namespace {

constexpr int exit_failure = 2;

int fail(const std::string &text) {
  std::cerr << "minidba: " << text.substr(0, text.find('\n')) << '\n';
  return exit_failure;
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("minidba maintains a catalog: its database, its index and the files beside them.", "minidba");
  std::string database, index;
  app.add_option("-d,--database", database, "the catalog's database")->required()->type_name("FILE");
  app.add_option("-i,--index", index, "the catalog's index")->type_name("FILE");
  app.set_version_flag("--version", RDM_VERSION);
  app.require_subcommand(0, 1);
  const CLI::App *update = app.add_subcommand("update", "take in the descriptions on standard input (SOIF)");
  const CLI::App *index_verb = app.add_subcommand("index", "write the index (needs -i)");

  try {
    app.parse(argc, argv);
    if (update->parsed()) {
      minidba::update(database, STDIN_FILENO, std::cout, std::cerr);
    } else {
      if (!index_verb->parsed()) return fail("a verb is required: update or index");
      if (index.empty()) return fail("index: --index is required");
      minidba::index(database, index, std::cout);
    }
    std::cout.flush();
    return std::cout ? 0 : fail("cannot write to standard output");
  } catch (const CLI::ParseError &error) {
    return error.get_exit_code() == 0 ? app.exit(error) : fail(error.what());
  } catch (const std::exception &error) {
    return fail(error.what());
  }
}
