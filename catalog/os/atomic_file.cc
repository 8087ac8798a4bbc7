// SPDX-License-Identifier: MIT
#include "catalog/os/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

constexpr mode_t private_mode = 0600, usual_mode = 0644;

/// is_named returns true if a path names an open file: another process may have replaced or removed it.
bool is_named(int fd, const std::string &path) {
  struct stat opened, named;
  return ::fstat(fd, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

bool try_lock(int fd) {
  return uninterrupted([=] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

/// remove_abandoned removes a symbolic link, or a file that a killed process has left. Returns false if another process
/// has locked the file.
bool remove_abandoned(const std::string &path) {
  const HostFileGuard file = open_file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!file && errno == ENOENT) return true;
  if (!file && errno == ELOOP) return ::unlink(path.c_str()) == 0;
  if (!file) throw system_failure("cannot open " + path);
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

/// group_matters returns true if the group of a file has other permissions than all other users.
bool group_matters(mode_t mode) { return (mode >> 3 & 07) != (mode & 07); }

/// owner_matters returns true if only the owner may read a file: with another owner, it could not any more.
bool owner_matters(mode_t mode) { return (mode & (S_IRGRP | S_IROTH)) == 0; }

/// keep_owner copies group and owner. Only the superuser may change an owner; the files of other users stay theirs.
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
  if (fd == -1 || uninterrupted([=] { return ::fsync(fd); }) != 0) throw system_failure("fsync " + path);
}

}  // namespace

AtomicFile::AtomicFile(std::string target, std::string like)
    : target_(std::move(target)),
      like_(std::move(like)),
      file_(claim(target_ + std::string(next_state_suffix), model() ? private_mode : usual_mode)) {}

AtomicFile::~AtomicFile() {
  if (!is_committed_ && is_named(file_.descriptor(), file_.name())) ::unlink(file_.name().c_str());
}

/// model returns the status of the file to copy owner, group and mode from, or std::nullopt if there is none.
std::optional<struct stat> AtomicFile::model() const {
  auto status = status_of(target_);
  if (!status && !like_.empty()) status = status_of(like_);
  return status;
}

void AtomicFile::sync() {
  if (const auto old = model()) {
    keep_owner(file_, *old);
    // After fchown: with the mode of the old file, the new one must not be readable for another group.
    if (::chmod(file_.name().c_str(), old->st_mode & 07777) != 0)
      throw system_failure("cannot set the permissions of " + file_.name());
  }
  put_onto_disk(file_.descriptor(), file_.name());
}

void AtomicFile::replace() {
  if (!is_named(file_.descriptor(), file_.name())) throw Failure("another process has removed " + file_.name());
  if (::rename(file_.name().c_str(), target_.c_str()) != 0) throw system_failure("cannot replace " + target_);
  is_committed_ = true;
}

void AtomicFile::commit() {
  replace();
  const std::string directory = directory_of(target_);
  after_replacing(target_, [&] { put_onto_disk(open_file(directory, O_RDONLY | O_DIRECTORY).get(), directory); });
}

}  // namespace rdm::catalog
