// SPDX-License-Identifier: MIT
#include "catalog/os/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

constexpr mode_t private_mode = 0600, usual_mode = 0644;

/// is_named says whether a path leads to an open file, and not to another that has taken its name.
bool is_named(int fd, const std::string &path) {
  struct stat opened, named;
  return ::fstat(fd, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

bool try_lock(int fd) {
  return uninterrupted([=] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

/// remove_abandoned removes what a killed process has left, and a link, which nobody has written. False when somebody
/// is at work on the file.
bool remove_abandoned(const std::string &path) {
  const HostFileGuard file = open_file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!file && errno == ENOENT) return true;
  if (!file && errno == ELOOP) return ::unlink(path.c_str()) == 0;
  if (!file) throw system_failure("cannot look at " + path);
  if (!try_lock(file.get())) return false;
  if (is_named(file.get(), path)) ::unlink(path.c_str());
  return true;
}

File claim(const std::string &path, mode_t mode) {
  if (!remove_abandoned(path)) throw Failure("another process is writing " + path);
  File file = File::create(path, mode);
  if (try_lock(file.descriptor())) return file;
  const int error = errno;
  ::unlink(path.c_str());
  errno = error;
  throw system_failure("cannot lock " + path);
}

/// Without the group that it is for, a file means something else unless its group may do what everybody may.
bool group_matters(mode_t mode) { return (mode >> 3 & 07) != (mode & 07); }

/// A file that only its owner reads would be lost to him.
bool owner_matters(mode_t mode) { return (mode & (S_IRGRP | S_IROTH)) == 0; }

/// keep_owner gives a file the group and owner of another. Only the superuser may give files away; others become the
/// owners of what they write.
void keep_owner(const File &file, const struct stat &old) {
  constexpr auto same_owner = static_cast<uid_t>(-1);
  constexpr auto same_group = static_cast<gid_t>(-1);
  const struct stat now = file.status();
  if (now.st_gid != old.st_gid && ::fchown(file.descriptor(), same_owner, old.st_gid) != 0 &&
      group_matters(old.st_mode))
    throw system_failure("cannot keep the group of " + file.name());
  if (now.st_uid != old.st_uid && ::fchown(file.descriptor(), old.st_uid, same_group) != 0 &&
      owner_matters(old.st_mode))
    throw system_failure("cannot keep the owner of " + file.name());
}

void put_onto_disk(int fd, const std::string &path) {
  if (fd == -1 || uninterrupted([=] { return ::fsync(fd); }) != 0)
    throw system_failure("cannot put onto the disk: " + path);
}

}  // namespace

AtomicFile::AtomicFile(std::string target, std::string like)
    : target_(std::move(target)),
      like_(std::move(like)),
      file_(claim(target_ + std::string(next_state_suffix), model() ? private_mode : usual_mode)) {}

AtomicFile::~AtomicFile() {
  if (!is_committed_ && is_named(file_.descriptor(), file_.name())) ::unlink(file_.name().c_str());
}

/// model returns the status of the file that this one will belong to the same people as; nothing where there is none.
std::optional<struct stat> AtomicFile::model() const {
  auto status = status_of(target_);
  if (!status && !like_.empty()) status = status_of(like_);
  return status;
}

void AtomicFile::sync() {
  if (const auto old = model()) {
    keep_owner(file_, *old);
    // The owner and group come first: the file must not be for those whom the old one was not for.
    if (::chmod(file_.name().c_str(), old->st_mode & 07777) != 0)
      throw system_failure("cannot set the permissions of " + file_.name());
  }
  put_onto_disk(file_.descriptor(), file_.name());
}

void AtomicFile::commit() {
  if (!is_named(file_.descriptor(), file_.name())) throw Failure("another process has removed " + file_.name());
  if (::rename(file_.name().c_str(), target_.c_str()) != 0) throw system_failure("cannot replace " + target_);
  is_committed_ = true;
  const std::string directory = directory_of(target_);
  after_replacing(target_, [&] { put_onto_disk(open_file(directory, O_RDONLY | O_DIRECTORY).get(), directory); });
}

}  // namespace rdm::catalog
