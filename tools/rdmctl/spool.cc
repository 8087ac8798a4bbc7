// SPDX-License-Identifier: MIT
#include "tools/rdmctl/spool.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>

#include "catalog/os/error.h"
#include "catalog/os/file.h"

namespace rdm::rdmctl {
namespace {

namespace fs = std::filesystem;

/// is_finished returns false for the names under which writers keep a file until it is complete.
bool is_finished(const std::string &name) {
  return !name.starts_with('.') && !name.ends_with(".tmp") && !name.ends_with(".part");
}

/// numbered appends a number to a name, which it cuts if it would be too long.
std::string numbered(const std::string &name, int number) {
  const std::string suffix = "~" + std::to_string(number);
  return name.substr(0, NAME_MAX - suffix.size()) + suffix;
}

dev_t device_of(host_fd file) {
  struct stat status {};
  if (::fstat(file, &status) != 0) throw catalog::system_failure("cannot look at a directory of the spool");
  return status.st_dev;
}

bool is_same(const struct stat &a, const struct stat &b) {
  return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

bool rename_to(const std::string &from, const std::string &to) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

}  // namespace

Spool::Spool(std::string directory)
    : directory_(std::move(directory)), lock_(catalog::open_file(directory_, O_RDONLY | O_DIRECTORY)) {
  if (!lock_) throw catalog::system_failure("cannot open " + directory_);
  if (uninterrupted([&] { return ::flock(lock_.get(), LOCK_EX | LOCK_NB); }) == 0) return;
  if (errno == EWOULDBLOCK) throw catalog::Failure("another process takes files from " + directory_);
  throw catalog::system_failure("cannot lock " + directory_);
}

std::vector<std::string> Spool::files() const {
  std::vector<std::string> names;
  std::error_code error;
  fs::directory_iterator at(directory_, error);
  for (; !error && at != fs::directory_iterator(); at.increment(error)) {
    std::error_code ignored;
    const std::string name = at->path().filename().string();
    if (is_finished(name) && at->symlink_status(ignored).type() == fs::file_type::regular) names.push_back(name);
  }
  if (error) throw catalog::Failure("cannot read " + directory_ + ": " + error.message());
  std::sort(names.begin(), names.end());
  return names;
}

void Spool::make_subdirectories() const {
  for (const std::string subdirectory : {done, rejected}) {
    const std::string to = path(subdirectory);
    if (::mkdir(to.c_str(), 0777) != 0 && errno != EEXIST) throw catalog::system_failure("cannot make " + to);
    const HostFileGuard opened = catalog::open_file(to, O_RDONLY | O_DIRECTORY);
    if (!opened || ::access(to.c_str(), W_OK | X_OK) != 0) throw catalog::system_failure("cannot write to " + to);
    if (device_of(opened.get()) != device_of(lock_.get()))
      throw catalog::Failure(to + " is on another file system than " + directory_);
  }
}

void Spool::move(const std::string &name, const struct stat &taken, const std::string &subdirectory) const {
  const auto now = catalog::status_of(path(name));
  if (!now || !is_same(*now, taken)) return;
  const std::string to = path(subdirectory);
  bool is_moved = rename_to(path(name), to + "/" + name);
  for (int i = 1; !is_moved && errno == EEXIST; ++i) is_moved = rename_to(path(name), to + "/" + numbered(name, i));
  if (!is_moved) throw catalog::system_failure("cannot move " + path(name) + " to " + to);
}

}  // namespace rdm::rdmctl
