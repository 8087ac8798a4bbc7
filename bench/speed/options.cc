// SPDX-License-Identifier: MIT
#include "speed/options.h"

#include <algorithm>

#include "cli/command_line.h"

namespace rdm::bench {

bool Options::wants(std::string_view row) const { return std::find(rows.begin(), rows.end(), row) != rows.end(); }

std::optional<Options> parse_options(int argc, char **argv, std::ostream &out) {
  Options options;
  CLI::App app(
      "Measures the server beside the hash library, and beside nginx and slapd where they are installed, and "
      "prints a table as Markdown. Catalogs are made in TMPDIR.",
      "speed_table");
  cli::declare_program(app);
  app.add_option("--records", options.records, "Sizes of catalogs, a table for each")
      ->delimiter(',')
      ->check(CLI::Range(200, 10'000'000))
      ->type_name("N,...")
      ->capture_default_str();
  app.add_option("--rounds", options.rounds, "How often each variant is measured; the table has medians")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--rows", options.rows, "Groups of rows; by default all")
      ->delimiter(',')
      ->check(CLI::IsMember(options.rows))
      ->type_name("NAME,...");
  app.add_option("--workers", options.workers, "Worker processes of the server")
      ->check(CLI::Range(0, 256))
      ->capture_default_str();
  app.add_option("--readers", options.readers, "Clients that ask for a harvest and read nothing")
      ->check(CLI::Range(1, 10'000))
      ->capture_default_str();
  app.add_flag("--check", options.check, "Exit with status 1 if a row is beyond its limit");
  if (!cli::parse(app, argc, argv, out)) return {};
  return options;
}

}  // namespace rdm::bench
