// SPDX-License-Identifier: MIT
#include "tools/rdmctl/temporary_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "qxapi/temporary_directory.h"

namespace rdm::rdmctl {
namespace {

namespace fs = std::filesystem;

constexpr char prefix[] = "rdmctl-";

/// mark is a file in every directory that an import has created: others may have names with the same prefix.
constexpr char mark[] = ".rdmctl-import";

/// open_locked opens and locks a directory. The guard is empty if it is not a directory of this user, or if another
/// process has locked it.
HostFileGuard open_locked(const std::string &path) {
  HostFileGuard directory = catalog::open_file(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  struct stat status;
  const bool is_own = directory && ::fstat(directory.get(), &status) == 0 && status.st_uid == ::geteuid();
  return is_own && ::flock(directory.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(directory) : HostFileGuard();
}

/// set_mark creates the mark in a directory. Returns false if it cannot.
bool set_mark(const fs::path &directory) {
  return static_cast<bool>(catalog::open_file((directory / mark).string(), O_WRONLY | O_CREAT | O_EXCL, 0600));
}

/// empty removes the contents of a directory except the mark. Returns false if it cannot.
bool empty(const fs::path &directory) {
  std::error_code error;
  for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();) {
    if (at->path().filename() != mark) fs::remove_all(at->path(), error);
    if (!error) at.increment(error);
  }
  return !error;
}

/// remove_made removes a marked directory with its contents, and another one only if it is empty. It removes the mark
/// last, so that the next import tries again if a file cannot be removed.
void remove_made(const fs::path &directory) {
  std::error_code ignored;
  if (fs::exists(directory / mark, ignored) && empty(directory)) fs::remove(directory / mark, ignored);
  fs::remove(directory, ignored);
}

/// remove_abandoned removes the directories of killed processes.
void remove_abandoned(const std::string &parent) {
  std::error_code ignored;
  for (const auto &entry : fs::directory_iterator(parent, ignored))
    if (entry.path().filename().string().starts_with(prefix))
      if (const HostFileGuard directory = open_locked(entry.path().string())) remove_made(entry.path());
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : maker_(::getpid()) {
  const std::string parent = named_temporary_directory();
  remove_abandoned(parent);
  // Until the directory is locked, another import may remove it as an abandoned one.
  for (int attempt = 0; attempt < 100 && !lock_; ++attempt) {
    path_ = parent + "/" + prefix + "XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr)
      throw catalog::system_failure("cannot create a temporary directory in " + parent);
    lock_ = open_locked(path_);
    if (!lock_) ::rmdir(path_.c_str());
  }
  if (lock_ && set_mark(path_) && ::setenv("TMPDIR", path_.c_str(), 1) == 0) return;
  const int error = errno;
  if (lock_) remove_made(path_);
  errno = error;
  throw catalog::system_failure("cannot use a temporary directory in " + parent);
}

TemporaryDirectory::~TemporaryDirectory() {
  if (::getpid() == maker_) remove_made(path_);
}

}  // namespace rdm::rdmctl
