// SPDX-License-Identifier: MIT
#include "speed/command.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <vector>

#include "site.h"
#include "support/files.h"
#include "support/process.h"

namespace rdm::bench {
namespace {

constexpr const char *strace = "/usr/bin/strace";

double seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

}  // namespace

Cost cost_of(const std::string &command) {
  const support::TemporaryDirectory directory;
  const std::string errors = directory.path("errors");
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = support::start({"/bin/sh", "-c", command}, "/dev/null", "/dev/null", errors);
  int status = 0;
  struct rusage usage {};
  ::wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  if (status != 0) fail(command + ": " + support::read_file(errors));
  return {time.count(), seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

std::optional<std::uint64_t> system_calls(const std::string &command) {
  if (!std::filesystem::exists(strace)) return {};
  const support::TemporaryDirectory directory;
  const std::string summary = directory.path("summary");
  const auto finished = support::run({strace, "-f", "-c", "-o", summary, "/bin/sh", "-c", command});
  if (finished.status != 0 || !support::file_exists(summary)) return {};
  return total_calls(support::read_file(summary));
}

std::uint64_t total_calls(std::string_view summary) {
  std::istringstream lines{std::string(summary)};
  std::string line, last;
  while (std::getline(lines, line))
    if (line.ends_with(" total")) last = line;
  std::istringstream columns(last);
  double percent = 0, time = 0;
  std::uint64_t each = 0, calls = 0;
  columns >> percent >> time >> each >> calls;
  return calls;
}

}  // namespace rdm::bench
