// SPDX-License-Identifier: MIT
#include "tools/soif/run_soif.h"

#include <sys/mman.h>
#include <unistd.h>

#include <sstream>

#include "qxapi/guard.h"
#include "tools/common/program.h"
#include "tools/soif/command_line.h"

namespace rdm {
namespace {

HostFileGuard file_of(const std::string &input) {
  HostFileGuard file(::memfd_create("input", MFD_CLOEXEC));
  if (::pwrite(file.get(), input.data(), input.size(), 0) != static_cast<ssize_t>(input.size())) return HostFileGuard();
  return file;
}

int run(std::vector<std::string> &words, int input, std::ostream &out, std::ostream &errors) {
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  try {
    const auto command = soif_tool::read_command_line(static_cast<int>(arguments.size()), arguments.data(), out);
    return command ? command->verb(command->options, {input, out, errors, false}) : tools::exit_done;
  } catch (const std::exception &failure) {
    errors << "soif: " << failure.what() << '\n';
    return tools::exit_failure;
  }
}

}  // namespace

support::Finished run_soif(std::vector<std::string> words, const std::string &input) {
  words.emplace(words.begin(), "soif");
  const HostFileGuard file = file_of(input);
  std::ostringstream out, errors;
  const int status = run(words, file.get(), out, errors);
  return {status, out.str(), errors.str()};
}

}  // namespace rdm
