// SPDX-License-Identifier: MIT
#include "tools/rdmctl/temporary_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "catalog/os/error.h"
#include "catalog/os/file.h"

namespace rdm::rdmctl {
namespace {

namespace fs = std::filesystem;

constexpr char prefix[] = "rdmctl-";

/// A file of this name says that the directory around it was made here: somebody may keep another one beside it.
constexpr char mark[] = ".rdmctl-import";

std::string parent_directory() {
  const char *named = std::getenv("TMPDIR");
  return named != nullptr && *named != '\0' ? named : P_tmpdir;
}

/// open_locked opens a directory and locks it; nothing when it is no directory of this user, or another process has the
/// lock.
HostFileGuard open_locked(const std::string &path) {
  HostFileGuard directory = catalog::open_file(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  struct stat status;
  const bool is_own = directory && ::fstat(directory.get(), &status) == 0 && status.st_uid == ::geteuid();
  return is_own && ::flock(directory.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(directory) : HostFileGuard();
}

/// set_mark returns whether the mark is in a directory now.
bool set_mark(const fs::path &directory) {
  return static_cast<bool>(catalog::open_file((directory / mark).string(), O_WRONLY | O_CREAT | O_EXCL, 0600));
}

/// empty removes what is in a directory besides the mark, and returns whether it could.
bool empty(const fs::path &directory) {
  std::error_code error;
  for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();) {
    if (at->path().filename() != mark) fs::remove_all(at->path(), error);
    if (!error) at.increment(error);
  }
  return !error;
}

/// remove_made removes a directory that was made here. The mark goes after all else: if something stays, the next
/// import tries again. Without a mark a directory goes only if nothing is in it.
void remove_made(const fs::path &directory) {
  std::error_code ignored;
  if (fs::exists(directory / mark, ignored) && empty(directory)) fs::remove(directory / mark, ignored);
  fs::remove(directory, ignored);
}

/// remove_abandoned removes directories whose makers were killed.
void remove_abandoned(const std::string &parent) {
  std::error_code ignored;
  for (const auto &entry : fs::directory_iterator(parent, ignored))
    if (entry.path().filename().string().starts_with(prefix))
      if (const HostFileGuard directory = open_locked(entry.path().string())) remove_made(entry.path());
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : maker_(::getpid()) {
  const std::string parent = parent_directory();
  remove_abandoned(parent);
  // Another import may take the directory for an abandoned one before it is locked.
  for (int attempt = 0; attempt < 100 && !lock_; ++attempt) {
    path_ = parent + "/" + prefix + "XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr)
      throw catalog::system_failure("cannot create a temporary directory in " + parent);
    lock_ = open_locked(path_);
    if (!lock_) ::rmdir(path_.c_str());
  }
  if (lock_ && set_mark(path_) && ::setenv("TMPDIR", path_.c_str(), 1) == 0) return;
  const catalog::Failure failure = catalog::system_failure("cannot use a temporary directory in " + parent);
  if (lock_) remove_made(path_);
  throw failure;
}

TemporaryDirectory::~TemporaryDirectory() {
  if (::getpid() == maker_) remove_made(path_);
}

}  // namespace rdm::rdmctl
