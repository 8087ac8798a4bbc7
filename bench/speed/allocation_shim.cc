// SPDX-License-Identifier: MIT
/// A library for LD_PRELOAD that counts the allocations of a program and its children in the file that the variable
/// ALLOCATION_COUNT names: eight bytes, an integer of the machine. The program's own allocator serves them.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#define EXPORTED __attribute__((visibility("default")))

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

/// next returns the function that this library hides.
template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

EXPORTED void *malloc(std::size_t size) {
  static auto *const hidden = next<decltype(malloc)>("malloc");
  note();
  return hidden(size);
}

EXPORTED void *calloc(std::size_t nmemb, std::size_t size) {
  static auto *const hidden = next<decltype(calloc)>("calloc");
  note();
  return hidden(nmemb, size);
}

EXPORTED void *realloc(void *ptr, std::size_t size) {
  static auto *const hidden = next<decltype(realloc)>("realloc");
  note();
  return hidden(ptr, size);
}

EXPORTED void *aligned_alloc(std::size_t alignment, std::size_t size) {
  static auto *const hidden = next<decltype(aligned_alloc)>("aligned_alloc");
  note();
  return hidden(alignment, size);
}

}  // extern "C"

/// Allocators may bring operators along that do not call malloc.
EXPORTED void *operator new(std::size_t size) {
  if (void *block = std::malloc(size)) return block;
  throw std::bad_alloc();
}

EXPORTED void operator delete(void *block) noexcept { std::free(block); }
EXPORTED void operator delete(void *block, std::size_t) noexcept { std::free(block); }
