// SPDX-License-Identifier: MIT
#include "hosts/rdmd/worker/own_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace rdm::rdmd {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "rdmd-worker-";

/// lock_directory opens a directory of this user and locks it. Returns an empty guard if a worker holds the lock.
HostFileGuard lock_directory(const std::string &path) {
  HostFileGuard directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  const bool is_own = directory && ::fstat(directory.get(), &status) == 0 && status.st_uid == ::geteuid();
  if (!is_own || ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0) return HostFileGuard();
  return directory;
}

}  // namespace

OwnDirectory::OwnDirectory(const std::string &parent) : path_(parent + '/' + std::string(prefix) + "XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), "mkdtemp " + path_);
  lock_ = lock_directory(path_);
}

OwnDirectory::~OwnDirectory() { remove_own_directory(path_); }

void remove_own_directory(const std::string &path) {
  std::error_code ignored;
  if (fs::path(path).filename().string().starts_with(prefix)) fs::remove_all(path, ignored);
}

void remove_unused_directories(const std::string &parent) {
  std::error_code ignored;
  for (const fs::directory_entry &entry : fs::directory_iterator(parent, ignored)) {
    if (!entry.path().filename().string().starts_with(prefix)) continue;
    if (const HostFileGuard unused = lock_directory(entry.path())) remove_own_directory(entry.path());
  }
}

}  // namespace rdm::rdmd
