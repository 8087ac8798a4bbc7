// SPDX-License-Identifier: MIT
#include "hosts/common/shared_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
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

/// drop_some takes the kept files that are not current any more, and those beyond `limit`. The caller destroys them
/// without the mutex.
std::vector<FilePtr> drop_some(std::size_t limit) {
  std::vector<FilePtr> dropped;
  const auto rest =
      std::stable_partition(kept.begin(), kept.end(), [](const FilePtr &file) { return !file->is_current(); });
  const auto beyond = std::max(rest, kept.end() - static_cast<std::ptrdiff_t>(std::min(limit, kept.size())));
  std::move(kept.begin(), beyond, std::back_inserter(dropped));
  kept.erase(kept.begin(), beyond);
  return dropped;
}

void keep(FilePtr file) {
  std::vector<FilePtr> dropped;
  const std::lock_guard lock(files_mutex);
  dropped = drop_some(SharedFile::kept_limit - 1);
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
  std::vector<FilePtr> dropped;
  const std::lock_guard lock(files_mutex);
  dropped = drop_some(kept_limit);
  std::erase_if(files, [](const auto &entry) { return entry.second.expired(); });
  std::weak_ptr<const SharedFile> &known = files[version];
  if (FilePtr file = known.lock()) return file;
  HostFileGuard copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!copy) return nullptr;
  auto file = std::make_shared<const SharedFile>(std::move(copy), version);
  known = file;
  return file;
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
