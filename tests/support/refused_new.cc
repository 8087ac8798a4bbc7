// SPDX-License-Identifier: MIT
#include "support/refused_new.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

using namespace rdm;

namespace {

std::atomic<bool> armed{false}, aligned_armed{false};
std::atomic<long> calls{0};
std::size_t smallest = 0, largest = 0;

}  // namespace

void *operator new(std::size_t n) {
  ++calls;
  const bool meant = armed && n >= smallest && n <= largest && armed.exchange(false);
  void *block = meant ? nullptr : std::malloc(n);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// Freed here as well: a sanitizer would report a mismatch with its own operator delete.
void *operator new(std::size_t n, const std::nothrow_t &) noexcept { return std::malloc(n); }

extern "C" void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  void *block = nullptr;
  const bool refused = aligned_armed.exchange(false);
  return !refused && ::posix_memalign(&block, std::max(alignment, sizeof block), size) == 0 ? block : nullptr;
}

void operator delete(void *block) noexcept { std::free(block); }
void operator delete(void *block, std::size_t) noexcept { std::free(block); }

namespace rdm::support {

RefusedNew::RefusedNew(std::size_t least, std::size_t most) {
  smallest = least;
  largest = most;
  armed = true;
}

RefusedNew::~RefusedNew() { armed = false; }

bool RefusedNew::done() const { return !armed; }

RefusedHandler::RefusedHandler() { aligned_armed = true; }

RefusedHandler::~RefusedHandler() { aligned_armed = false; }

bool RefusedHandler::done() const { return !aligned_armed; }

long calls_of_new() { return calls; }

}  // namespace rdm::support
