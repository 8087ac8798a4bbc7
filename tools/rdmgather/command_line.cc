// SPDX-License-Identifier: MIT
#include "tools/rdmgather/command_line.h"

#include "cli/command_line.h"
#include "tools/common/distinct_files.h"
#include "tools/rdmgather/document_url.h"

namespace rdm::gather {
namespace {

constexpr unsigned most_jobs = 64;

/// is_not_empty refuses an empty text, which a shell passes for a variable that is not set.
CLI::Validator is_not_empty() {
  return {[](const std::string &text) -> std::string { return text.empty() ? "must not be empty" : ""; }, ""};
}

CLI::Validator is_base_url() {
  return {[](const std::string &text) { return fault_of_base(text); }, ""};
}

void declare_options(CLI::App &app, Options &options) {
  app.add_option("DIRECTORY", options.directory, "the directory of the documents")
      ->required()
      ->check(is_not_empty())
      ->type_name("");
  app.add_option("--base-url", options.base_url, "URL of the directory, in front of the names of documents")
      ->required()
      ->check(is_base_url())
      ->type_name("URL");
  CLI::Option *state =
      app.add_option("--state", options.state, "remember documents in this file: describe changes only")
          ->check(is_not_empty())
          ->type_name("FILE");
  app.add_option("--deletions", options.deletions, "write the URLs of documents that have vanished to this file")
      ->check(is_not_empty())
      ->needs(state)
      ->type_name("FILE");
  app.add_flag("--believe", options.believe, "accept that all documents have vanished");
  app.add_option("--jobs", options.jobs, "documents to read at a time; by default one a processor")
      ->check(CLI::Range(1U, most_jobs))
      ->type_name("NUMBER");
  app.add_flag("--json", options.json, "write messages as JSON, one object a line");
  app.add_flag("-q,--quiet", options.quiet, "no summary and no progress on standard error");
}

}  // namespace

std::optional<Options> read_command_line(int argc, char **argv, std::ostream &out) {
  CLI::App app("Describes the documents of a directory: writes SOIF to standard output.", "rdmgather");
  cli::declare_program(app);
  app.footer(
      "\"rdmgather completion bash|zsh|fish\" prints the completion of a shell.\n"
      "The manual page rdmgather(1) tells all.");
  Options options;
  declare_options(app, options);
  if (!cli::parse(app, argc, argv, out)) return std::nullopt;
  tools::require_distinct({{"--state", options.state}, {"--deletions", options.deletions}});
  return options;
}

}  // namespace rdm::gather
