// SPDX-License-Identifier: MIT
#include "hosts/common/shared_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

#include "hosts/common/close_aside.h"

namespace rdm::hosts {
namespace {

using FilePtr = std::shared_ptr<const SharedFile>;

constexpr std::int64_t large_share = 8;  // what part of a file is worth a mapping at once

std::mutex files_mutex;  // guards the variables below
std::map<FileVersion, std::weak_ptr<const SharedFile>> files;
std::vector<FilePtr> kept;  // the one expected first in front

/// Dropped are files that were kept. They are destroyed without the mutex.
using Dropped = std::array<FilePtr, SharedFile::kept_limit>;

/// drop_first moves the kept files in front of `end`.
void drop_first(std::vector<FilePtr>::iterator end, Dropped &dropped) {
  std::move(kept.begin(), end, dropped.begin());
  kept.erase(kept.begin(), end);
}

void keep(FilePtr file) {
  Dropped dropped;
  const std::lock_guard lock(files_mutex);
  if (kept.size() == SharedFile::kept_limit) drop_first(kept.begin() + 1, dropped);
  kept.push_back(std::move(file));
}

FileVersion version_of(const struct stat &status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

}  // namespace

std::shared_ptr<const SharedFile> SharedFile::open(host_fd fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0) return nullptr;
  const FileVersion version = version_of(status);
  const std::lock_guard lock(files_mutex);
  std::erase_if(files, [](const auto &entry) { return entry.second.expired(); });
  std::weak_ptr<const SharedFile> &known = files[version];
  if (FilePtr file = known.lock()) return file;
  HostFileGuard copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!copy) return nullptr;
  auto file = std::make_shared<const SharedFile>(std::move(copy), version);
  known = file;
  return file;
}

void SharedFile::let_go_former() noexcept {
  Dropped dropped;
  const std::lock_guard lock(files_mutex);
  const auto is_former = [](const FilePtr &file) { return !file->is_current(); };
  drop_first(std::stable_partition(kept.begin(), kept.end(), is_former), dropped);
}

/// Kept files are destroyed at the end of the process, when what host_close uses may be gone.
SharedFile::~SharedFile() {
  const std::size_t mapped = bytes_ != nullptr ? static_cast<std::size_t>(version_.size) : 0;
  const host_fd fd = file_.release();
  if (close_aside(fd, bytes_, mapped)) return;
  if (mapped > 0) ::munmap(bytes_, mapped);
  ::close(fd);
}

bool SharedFile::is_current() const {
  struct stat status;
  return ::fstat(file_.get(), &status) == 0 && status.st_nlink > 0 && version_of(status) == version_;
}

bool SharedFile::is_unchanged() const {
  struct stat status;
  return ::fstat(file_.get(), &status) == 0 && version_of(status) == version_;
}

void SharedFile::expect(std::int64_t bytes) const {
  const bool is_first = !is_kept_.exchange(true);
  if (is_first) keep(shared_from_this());
  if (!is_first || bytes >= version_.size / large_share) is_worth_mapping_ = true;
}

const char *SharedFile::mapping() const {
  if (!is_worth_mapping_) return nullptr;
  std::call_once(mapped_, [this] {
    void *const bytes = ::mmap(nullptr, static_cast<std::size_t>(version_.size), PROT_READ, MAP_SHARED, file_.get(), 0);
    if (bytes != MAP_FAILED) bytes_ = bytes;
  });
  return static_cast<const char *>(bytes_);
}

}  // namespace rdm::hosts
