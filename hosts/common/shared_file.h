// SPDX-License-Identifier: MIT
/// Open files that the answers of a process share: one descriptor and one mapping each, however many answers use them.
///
/// The files sent last, at most SharedFile::kept_limit, stay open between answers, because the page faults of a new
/// mapping are a fifth of the CPU of an answer. One that has been changed, or has lost its name as a database that was
/// replaced, is let go when its answers and another one are sent.
#ifndef HOSTS_COMMON_SHARED_FILE_H
#define HOSTS_COMMON_SHARED_FILE_H

#include <sys/stat.h>

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "qxapi/guard.h"

namespace rdm::hosts {

/// FileVersion tells a file from others, and from itself after a change.
struct FileVersion {
  dev_t device = 0;
  ino_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0, nanoseconds = 0;  // of the last change of its bytes

  // NOLINTNEXTLINE(modernize-use-nullptr): the check means the zero of the comparison that the compiler writes
  auto operator<=>(const FileVersion &) const = default;
};

/// SharedFile may be used by several threads.
class SharedFile : public std::enable_shared_from_this<SharedFile> {
 public:
  static constexpr std::size_t kept_limit = 8;

  /// open returns the file to which a descriptor leads, as it is now. If an answer has it open already, that one is
  /// returned, otherwise one with a duplicate of the descriptor. Returns null, with errno set, if fstat() or dup()
  /// fails.
  static std::shared_ptr<const SharedFile> open(host_fd fd);

  /// let_go_former closes the kept files that are not current any more, unless an answer uses them. Call it when an
  /// answer is sent: closing a large mapping takes a thread.
  static void let_go_former() noexcept;

  SharedFile(HostFileGuard file, const FileVersion &version) : file_(std::move(file)), version_(version) {}
  SharedFile(const SharedFile &) = delete;
  SharedFile &operator=(const SharedFile &) = delete;
  ~SharedFile();

  host_fd fd() const { return file_.get(); }
  std::int64_t size() const { return version_.size; }

  /// is_unchanged returns true if the file still is as it was when it was opened.
  bool is_unchanged() const;
  /// is_current returns true if the file is unchanged and a directory still leads to it.
  bool is_current() const;

  /// expect notes that an answer begins which sends so many bytes of the file.
  void expect(std::int64_t bytes) const;

  /// mapping returns the bytes of the file; or null if it cannot be mapped, or if expect was called only once, for less
  /// than an eighth of the file: then reading the records takes less than the page faults. The bytes are for system
  /// calls, which fail with EFAULT if the file has been cut: a load in this process would be a SIGBUS.
  const char *mapping() const;

 private:
  HostFileGuard file_;
  const FileVersion version_;
  mutable std::once_flag mapped_;
  mutable std::atomic<bool> is_kept_ = false;
  mutable std::atomic<bool> is_worth_mapping_ = false;
  mutable void *bytes_ = nullptr;
};

}  // namespace rdm::hosts

#endif
