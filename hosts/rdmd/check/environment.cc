// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "hosts/common/log_file.h"
#include "hosts/rdmd/listen_address.h"
#include "hosts/rdmd/socket_file.h"
#include "hosts/rdmd/tls_context.h"

namespace rdm::check {
namespace {

namespace fs = std::filesystem;

constexpr int most_links = 40;  // as the kernel's limit

std::string reason() { return std::strerror(errno); }

/// is_directory returns true if the path is a directory, and reports an error otherwise.
bool is_directory(const Pair &directory, Report &report) {
  struct stat status;
  const bool found = ::stat(directory.value.c_str(), &status) == 0;
  if (found && S_ISDIR(status.st_mode)) return true;
  const bool hidden = !found && errno == EACCES;
  report.error(directory.line,
               quote(directory.name) + (hidden ? " cannot be reached: " + directory.value + ": " + reason()
                                               : " is not a directory: " + directory.value));
  return false;
}

/// target_of returns the target of a symbolic link, which need not exist, or `path` itself.
fs::path target_of(fs::path path) {
  std::error_code ignored;
  for (int i = 0; i < most_links && fs::is_symlink(path, ignored); ++i)
    path = path.parent_path() / fs::read_symlink(path, ignored);
  return path;
}

std::string failure(const std::string &path) { return path + ": " + reason(); }

/// opening_obstacle returns why an existing log cannot be opened, or an empty string.
std::string opening_obstacle(const std::string &path) {
  const HostFileGuard file(hosts::open_log(path.c_str()));
  return file ? "" : failure(path);
}

/// creating_obstacle returns why a missing log cannot be created, or an empty string. It removes the file that it
/// creates.
std::string creating_obstacle(const std::string &path) {
  const fs::path target = target_of(path);
  const HostFileGuard made(hosts::open_new_log(target.c_str()));
  if (made) return ::unlink(target.c_str()) == 0 ? "" : failure(target);
  if (errno == EEXIST) return opening_obstacle(path);
  std::string problem = failure(path);
  const std::string directory = target.has_parent_path() ? target.parent_path().string() : ".";
  return ::access(directory.c_str(), W_OK | X_OK) == 0 ? problem : failure(directory);
}

/// obstacle returns why the caller cannot append to a log, as "PATH: REASON", or an empty string. It calls open() as
/// the server does, because access() does not check everything that open() checks.
std::string obstacle(const std::string &path) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return errno == ENOENT ? creating_obstacle(path) : failure(path);
  if (S_ISSOCK(status.st_mode)) return path + ": it is a socket";
  if (S_ISREG(status.st_mode)) return opening_obstacle(path);
  // Opening a pipe or a device may have effects.
  return ::access(path.c_str(), W_OK) == 0 ? "" : failure(path);
}

}  // namespace

void check_programs(const Pair &directory, Report &report) {
  if (!is_directory(directory, report)) return;
  const std::string command = directory.value + "/minidba";
  std::error_code ignored;
  if (!fs::is_regular_file(command, ignored) || ::access(command.c_str(), X_OK) != 0)
    report.error(directory.line, quote(directory.name) + " has no executable minidba: " + directory.value);
}

void check_temporary(const Pair &directory, Report &report) {
  if (!is_directory(directory, report)) return;
  std::string name = directory.value + "/rdmd-check-XXXXXX";
  const HostFileGuard made(::mkostemp(name.data(), O_CLOEXEC));
  if (!made || ::unlink(name.c_str()) != 0)
    report.error(directory.line, quote(directory.name) + " cannot be written: " + reason());
}

void check_log(const Pair &log, Report &report) {
  struct stat status;
  if (::stat(log.value.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
    return report.error(log.line, quote(log.name) + " is a directory: " + log.value);
  if (const std::string problem = obstacle(log.value); !problem.empty())
    report.error(log.line, quote(log.name) + " cannot be written: " + problem);
}

void check_listen(const std::string &address, Report &report) {
  try {
    if (const auto path = rdmd::unix_path(address)) return rdmd::check_unix(*path);
    const std::vector<rdmd::ListenAddress> all = rdmd::resolve_listen(address);
    std::vector<std::string> missing;
    for (const rdmd::ListenAddress &one : all) {
      const int code = rdmd::bind_address(one, all.size() > 1) ? 0 : errno;
      const std::string problem = "cannot listen on " + one.text() + ": " + std::strerror(code);
      if (code == EADDRNOTAVAIL || code == EAFNOSUPPORT)
        missing.push_back(problem);
      else if (code != 0 && code != EADDRINUSE)
        report.error(0, problem);
    }
    for (const std::string &problem : missing)
      missing.size() == all.size() ? report.error(0, problem) : report.warning(0, problem);
  } catch (const rdmd::ListenError &error) {
    report.error(0, error.what());
  }
}

void check_tls(const std::string &certificate, const std::string &key, Report &report) {
  try {
    const rdmd::TlsContext context({certificate, key});
    for (const std::string &warning : context.warnings()) report.warning(0, warning);
  } catch (const rdmd::TlsError &error) {
    report.error(0, error.what());
  }
}

}  // namespace rdm::check
