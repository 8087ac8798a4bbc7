#include "tools/minidba/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "tools/minidba/failure.h"

namespace minidba {
namespace {

namespace fs = std::filesystem;

std::string folder_of(const std::string &path) {
  const std::string folder = fs::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

void write_all(int fd, std::string_view bytes, const std::string &path) {
  while (!bytes.empty()) {
    const ssize_t put = ::write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) throw system_failure("cannot write " + path);
    bytes.remove_prefix(static_cast<size_t>(put));
  }
}

/// scratch_in makes a file without a name in a folder; not every file system has such files.
file_guard scratch_in(const std::string &folder) {
  file_guard file(::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
  if (file) return file;
  std::string name = folder + "/.minidba-XXXXXX";
  file = file_guard(::mkostemp(name.data(), O_CLOEXEC));
  if (file) ::unlink(name.c_str());
  return file;
}

void sync_path(const std::string &path, int flags) {
  const file_guard file(::open(path.c_str(), flags | O_CLOEXEC));
  if (!file || ::fsync(file.get()) != 0) throw system_failure("cannot put onto the disk: " + path);
}

}  // namespace

std::optional<struct stat> status_of(const std::string &path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) return status;
  if (errno == ENOENT) return std::nullopt;
  throw system_failure("cannot look at " + path);
}

Lock::Lock(const std::string &database) {
  const std::string path = database + ".lock";
  file_ = file_guard(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!file_) throw system_failure("cannot lock " + path);
  while (::flock(file_.get(), LOCK_EX) != 0)
    if (errno != EINTR) throw system_failure("cannot lock " + path);
}

Snapshot::Snapshot(std::string target) : target_(std::move(target)), path_(target_ + ".new") {
  ::unlink(path_.c_str());
}

Snapshot::~Snapshot() { ::unlink(path_.c_str()); }

void Snapshot::create(std::string_view bytes) {
  const file_guard file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!file) throw system_failure("cannot create " + path_);
  write_all(file.get(), bytes, path_);
}

void Snapshot::sync() {
  if (const auto old = status_of(target_); old && ::chmod(path_.c_str(), old->st_mode & 07777) != 0)
    throw system_failure("cannot set the permissions of " + path_);
  sync_path(path_, O_RDONLY);
}

void Snapshot::commit() {
  if (::rename(path_.c_str(), target_.c_str()) != 0) throw system_failure("cannot replace " + target_);
  sync_path(folder_of(target_), O_RDONLY | O_DIRECTORY);
}

ScratchFile::ScratchFile(const std::string &beside) {
  const std::string folder = folder_of(beside);
  file_ = scratch_in(folder);
  if (!file_ && (errno == EACCES || errno == EROFS)) file_ = scratch_in(fs::temp_directory_path().string());
  if (!file_) throw system_failure("cannot create a temporary file in " + folder);
}

ScratchFile::Extent ScratchFile::append(std::string_view bytes) {
  const Extent extent{size_, static_cast<int64_t>(bytes.size())};
  write_all(file_.get(), bytes, "a temporary file");
  size_ += extent.size;
  return extent;
}

std::string ScratchFile::read(Extent extent) const {
  std::string bytes(static_cast<size_t>(extent.size), '\0');
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t got = ::pread(file_.get(), bytes.data() + done, bytes.size() - done,
                                static_cast<off_t>(extent.offset + static_cast<int64_t>(done)));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw system_failure("cannot read a temporary file");
    done += static_cast<size_t>(got);
  }
  return bytes;
}

}  // namespace minidba
