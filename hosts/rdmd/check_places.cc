#include "hosts/rdmd/check_places.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "hosts/rdmd/listen_address.h"

namespace check {
namespace {

namespace fs = std::filesystem;

constexpr int most_links = 40;  // that the system follows, too

std::string reason() { return std::strerror(errno); }

/// is_folder reports a path that is no directory, and returns false.
bool is_folder(const Pair &folder, Report &report) {
  struct stat status;
  const bool found = ::stat(folder.value.c_str(), &status) == 0;
  if (found && S_ISDIR(status.st_mode)) return true;
  const bool hidden = !found && errno == EACCES;
  report.error(folder.line, quote(folder.name) + (hidden ? " cannot be reached: " + folder.value + ": " + reason()
                                                         : " is not a folder: " + folder.value));
  return false;
}

/// target_of returns where a path leads that may be a symbolic link to a file that is not there.
fs::path target_of(fs::path path) {
  std::error_code ignored;
  for (int i = 0; i < most_links && fs::is_symlink(path, ignored); ++i)
    path = path.parent_path() / fs::read_symlink(path, ignored);
  return path;
}

/// obstacle returns why no process of the caller can append to a file, as "PLACE: REASON"; empty if one can.
std::string obstacle(const std::string &path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) {
    if (S_ISSOCK(status.st_mode)) return path + ": it is a socket";
    // Opening a pipe or a device can do something; a file is opened, because access() does not tell all that open()
    // does.
    if (!S_ISREG(status.st_mode)) return ::access(path.c_str(), W_OK) == 0 ? "" : path + ": " + reason();
    const file_guard file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK));
    return file ? "" : path + ": " + reason();
  }
  if (errno != ENOENT) return path + ": " + reason();
  const fs::path parent = target_of(path).parent_path();
  const std::string place = parent.empty() ? "." : parent.string();
  return ::access(place.c_str(), W_OK | X_OK) == 0 ? "" : place + ": " + reason();
}

}  // namespace

void check_programs(const Pair &folder, Report &report) {
  if (!is_folder(folder, report)) return;
  const std::string command = folder.value + "/minidba";
  std::error_code ignored;
  if (!fs::is_regular_file(command, ignored) || ::access(command.c_str(), X_OK) != 0)
    report.error(folder.line, quote(folder.name) + " holds no executable minidba: " + folder.value);
}

void check_temporary(const Pair &folder, Report &report) {
  if (is_folder(folder, report) && ::access(folder.value.c_str(), W_OK | X_OK) != 0)
    report.error(folder.line, quote(folder.name) + " cannot be written: " + reason());
}

void check_log(const Pair &log, Report &report) {
  struct stat status;
  if (::stat(log.value.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
    return report.error(log.line, quote(log.name) + " is a folder: " + log.value);
  if (const std::string problem = obstacle(log.value); !problem.empty())
    report.error(log.line, quote(log.name) + " cannot be written: " + problem);
}

void check_listen(const std::string &address, Report &report) {
  try {
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

}  // namespace check
