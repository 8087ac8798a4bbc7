// SPDX-License-Identifier: MIT
#include "tools/minidba/verb.h"

#include <sys/mman.h>
#include <unistd.h>

#include <sstream>

#include "qxapi/guard.h"
#include "tools/common/program.h"
#include "tools/minidba/command_line.h"

namespace rdm {

namespace {

/// file_of returns a file with the input. If `can_be_read_twice` is false, the offset is 1, after an additional byte.
HostFileGuard file_of(const std::string &input, bool can_be_read_twice) {
  HostFileGuard file(::memfd_create("input", MFD_CLOEXEC));
  const std::string bytes = can_be_read_twice ? input : "@" + input;
  if (::pwrite(file.get(), bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return HostFileGuard();
  ::lseek(file.get(), can_be_read_twice ? 0 : 1, SEEK_SET);
  return file;
}

int run(std::vector<std::string> words, int input, std::ostream &out, std::ostream &errors,
        const std::function<time_t()> &clock) {
  std::vector<char *> arguments{words.emplace(words.begin(), "minidba")->data()};
  for (size_t i = 1; i < words.size(); ++i) arguments.push_back(words[i].data());
  try {
    const auto command = minidba::read_command_line(static_cast<int>(arguments.size()), arguments.data(), out);
    return command->verb(command->options, minidba::Console{input, out, errors, false, false, clock});
  } catch (const std::exception &failure) {
    errors << "minidba: " << failure.what() << '\n';
    return tools::exit_failure;
  }
}

}  // namespace

support::Finished run_verb(const std::vector<std::string> &words, const std::string &input, bool can_be_read_twice,
                           const std::function<time_t()> &clock) {
  const HostFileGuard file = file_of(input, can_be_read_twice);
  std::ostringstream out, errors;
  const int status = run(words, file.get(), out, errors, clock);
  return {status, out.str(), errors.str()};
}

}  // namespace rdm
