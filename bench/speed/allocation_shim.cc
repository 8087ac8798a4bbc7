// SPDX-License-Identifier: MIT
/// A library for LD_PRELOAD that counts the allocations of a program and its children in the file that the variable
/// ALLOCATION_COUNT names: eight bytes, an integer of the machine. Operator new counts because it calls malloc.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#define EXPORTED extern "C" __attribute__((visibility("default")))

// The C library's own names for the functions that this library replaces.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,readability-identifier-naming)
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,readability-identifier-naming)
}

namespace {

std::atomic<std::uint64_t> *count = nullptr;

__attribute__((constructor)) void map_count() {
  const char *path = std::getenv("ALLOCATION_COUNT");
  const int fd = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  void *page = ::mmap(nullptr, sizeof *count, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (page != MAP_FAILED) count = static_cast<std::atomic<std::uint64_t> *>(page);
}

void note() {
  if (count != nullptr) count->fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

EXPORTED void *malloc(std::size_t size) {
  note();
  return __libc_malloc(size);
}

EXPORTED void *calloc(std::size_t nmemb, std::size_t size) {
  note();
  return __libc_calloc(nmemb, size);
}

EXPORTED void *realloc(void *ptr, std::size_t size) {
  note();
  return __libc_realloc(ptr, size);
}

EXPORTED void *aligned_alloc(std::size_t alignment, std::size_t size) {
  note();
  return __libc_memalign(alignment, size);
}
