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
#include <utility>

namespace rdm::rdmd {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "rdmd-worker-";

HostFileGuard open_directory(const std::string &path) {
  return HostFileGuard(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// lock_unused opens a directory of this user and locks it. Returns an empty guard if a worker holds the lock.
HostFileGuard lock_unused(const std::string &path) {
  HostFileGuard directory = open_directory(path);
  struct stat status;
  const bool is_own = directory && ::fstat(directory.get(), &status) == 0 && status.st_uid == ::geteuid();
  if (!is_own || ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0) return HostFileGuard();
  return directory;
}

std::string make_directory(const std::string &parent) {
  std::string path = parent + '/' + std::string(prefix) + "XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw std::system_error(errno, std::generic_category(), "mkdtemp " + path);
  return path;
}

/// lock_new opens and locks a directory that was just made. Returns an empty guard if another worker has removed it:
/// without a lock, it looks like one whose worker has ended. On a file system without locks nobody removes it.
HostFileGuard lock_new(const std::string &path) {
  HostFileGuard directory = open_directory(path);
  if (!directory && errno != ENOENT) throw std::system_error(errno, std::generic_category(), "open " + path);
  if (directory) ::flock(directory.get(), LOCK_EX);
  struct stat status;
  const bool exists = directory && ::fstat(directory.get(), &status) == 0 && status.st_nlink > 0;
  return exists ? std::move(directory) : HostFileGuard();
}

}  // namespace

OwnDirectory::OwnDirectory(const std::string &parent) {
  do {
    path_ = make_directory(parent);
    lock_ = lock_new(path_);
  } while (!lock_);
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
    if (const HostFileGuard unused = lock_unused(entry.path())) remove_own_directory(entry.path());
  }
}

}  // namespace rdm::rdmd
