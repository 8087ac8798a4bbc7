// SPDX-License-Identifier: MIT
/// Guards for the host's resources: each releases its resource at the end of its scope.
#ifndef QXAPI_GUARD_H
#define QXAPI_GUARD_H

#include <memory>
#include <string_view>
#include <utility>

#include <qxapi/qxapi.h>

namespace rdm {

/// Deleter<f> makes a std::unique_ptr release its object with f.
template <auto release>
struct Deleter {
  template <typename T>
  void operator()(T *p) const noexcept {
    release(p);
  }
};

/// HostPtr owns a block of host_alloc, host_realloc or host_strdup. The objects in it need no destructor.
template <typename T>
using HostPtr = std::unique_ptr<T, Deleter<host_free>>;
using HostText = HostPtr<char>;

using PblockPtr = std::unique_ptr<pblock, Deleter<host_param_free>>;
using ParamPtr = std::unique_ptr<host_param, Deleter<host_param_free_entry>>;
using ReaderPtr = std::unique_ptr<host_buffer, Deleter<host_buffer_close>>;

/// HostFileGuard owns an open descriptor.
class HostFileGuard {
 public:
  explicit HostFileGuard(host_fd fd = -1) noexcept : fd_(fd) {}
  HostFileGuard(HostFileGuard &&other) noexcept : fd_(other.release()) {}
  HostFileGuard &operator=(HostFileGuard &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~HostFileGuard() {
    if (fd_ != -1) host_close(fd_);
  }
  explicit operator bool() const noexcept { return fd_ != -1; }
  host_fd get() const noexcept { return fd_; }
  host_fd release() noexcept { return std::exchange(fd_, -1); }

 private:
  host_fd fd_;
};

/// CritGuard holds a critical section for its lifetime. A null section is ignored.
class CritGuard {
 public:
  explicit CritGuard(host_crit *section) noexcept : section_(section) {
    if (section_ != nullptr) host_crit_enter(section_);
  }
  CritGuard(const CritGuard &) = delete;
  CritGuard &operator=(const CritGuard &) = delete;
  ~CritGuard() {
    if (section_ != nullptr) host_crit_exit(section_);
  }

 private:
  host_crit *section_;
};

/// host_new returns a zeroed record, or an array of `count` zeroed records, or null if allocation fails.
template <typename T>
HostPtr<T> host_new(size_t count = 1) noexcept {
  static_assert(std::is_trivially_destructible_v<T>);
  // NOLINTNEXTLINE(bugprone-sizeof-expression): T may well be a pointer
  HostPtr<T> block(static_cast<T *>(host_alloc(count * sizeof(T))));
  if (block) std::uninitialized_value_construct_n(block.get(), count);
  return block;
}

/// copy_text returns a copy of a text with a NUL after it, or null if allocation fails.
inline HostText copy_text(std::string_view text) noexcept {
  HostText copy(static_cast<char *>(host_alloc(text.size() + 1)));
  if (copy) copy.get()[text.copy(copy.get(), text.size())] = '\0';
  return copy;
}

}  // namespace rdm

#endif
