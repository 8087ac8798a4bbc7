/// Guards over the host's resources: each releases what it holds when it goes out of scope.
#ifndef QXAPI_GUARD_H
#define QXAPI_GUARD_H

#include <memory>
#include <utility>

#include <qxapi/qxapi.h>

/// deleter<f> makes a std::unique_ptr release through the procedure f.
template <auto release>
struct deleter {
  template <typename T>
  void operator()(T *p) const noexcept {
    release(p);
  }
};

/// host_ptr owns a block of host_alloc, host_realloc or host_strdup; the objects in it need no destructor.
template <typename T>
using host_ptr = std::unique_ptr<T, deleter<host_free>>;
using host_text = host_ptr<char>;

using pblock_ptr = std::unique_ptr<pblock, deleter<host_param_free>>;
using param_ptr = std::unique_ptr<host_param, deleter<host_param_free_entry>>;
using reader_ptr = std::unique_ptr<host_buffer, deleter<host_buffer_close>>;

/// file_guard owns an open descriptor.
class file_guard {
 public:
  explicit file_guard(host_fd fd = -1) noexcept : fd_(fd) {}
  file_guard(file_guard &&other) noexcept : fd_(other.release()) {}
  file_guard &operator=(file_guard &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~file_guard() {
    if (fd_ != -1) host_close(fd_);
  }
  explicit operator bool() const noexcept { return fd_ != -1; }
  host_fd get() const noexcept { return fd_; }
  host_fd release() noexcept { return std::exchange(fd_, -1); }

 private:
  host_fd fd_;
};

/// crit_guard is inside a critical section for its lifetime. Null is no section.
class crit_guard {
 public:
  explicit crit_guard(host_crit *section) noexcept : section_(section) {
    if (section_ != nullptr) host_crit_enter(section_);
  }
  crit_guard(const crit_guard &) = delete;
  crit_guard &operator=(const crit_guard &) = delete;
  ~crit_guard() {
    if (section_ != nullptr) host_crit_exit(section_);
  }

 private:
  host_crit *section_;
};

/// host_new returns an owned, zeroed record (or array of `count`), or null when memory fails.
template <typename T>
host_ptr<T> host_new(size_t count = 1) noexcept {
  static_assert(std::is_trivially_destructible_v<T>);
  // NOLINTNEXTLINE(bugprone-sizeof-expression): T may well be a pointer
  host_ptr<T> block(static_cast<T *>(host_alloc(count * sizeof(T))));
  if (block) std::uninitialized_value_construct_n(block.get(), count);
  return block;
}

#endif
