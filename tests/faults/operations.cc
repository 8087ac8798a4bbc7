// SPDX-License-Identifier: MIT
#include "faults/operations.h"

#include <cstdlib>
#include <cstring>

namespace rdm::faults {
namespace {

struct State {
  long n = 0;
  bool for_good = false;
  bool armed = false;
  long asked = 0;    // allocations while armed
  long refused = 0;  // how many of them failed
  long live = 0;
  qxapi_host base{};
  std::vector<host_crit *> sections;
} state;

bool refuse() {
  if (!state.armed) return false;
  ++state.asked;
  const bool strikes = state.n != 0 && (state.asked == state.n || (state.for_good && state.asked > state.n));
  if (strikes) ++state.refused;
  return strikes;
}

void *count_block(void *block) {
  if (block != nullptr) ++state.live;
  return block;
}

// The POSIX host allocates a byte for an empty block.
size_t at_least_one(size_t n) { return n != 0 ? n : 1; }

void *allocate(size_t n) { return refuse() ? nullptr : count_block(std::malloc(at_least_one(n))); }

void *reallocate(void *p, size_t n) {
  if (refuse()) return nullptr;
  return p == nullptr ? count_block(std::malloc(at_least_one(n))) : std::realloc(p, at_least_one(n));
}

void release(void *p) {
  if (p != nullptr) --state.live;
  std::free(p);
}

char *duplicate(const char *text) {
  const size_t size = std::strlen(text) + 1;
  void *copy = allocate(size);
  return copy == nullptr ? nullptr : static_cast<char *>(std::memcpy(copy, text, size));
}

host_crit *create_section() {
  host_crit *section = state.base.crit_create();
  if (section != nullptr) state.sections.push_back(section);
  return section;
}

}  // namespace

Memory::Memory(const qxapi_host &base, long n, bool for_good) {
  state = State{};
  state.n = n;
  state.for_good = for_good;
  state.base = base;
  qxapi_host host = base;
  host.alloc = allocate;
  host.realloc = reallocate;
  host.free = release;
  host.strdup = duplicate;
  host.crit_create = create_section;
  qxapi_bind(&host);
}

Memory::~Memory() {
  for (host_crit *section : state.sections) release(section);
  qxapi_bind(nullptr);
}

bool Memory::refused() const { return state.refused > 0; }
long Memory::lost_blocks() const { return state.live - static_cast<long>(state.sections.size()); }
void Memory::keep() { state.live = static_cast<long>(state.sections.size()); }

Memory::Armed::Armed() { state.armed = true; }
Memory::Armed::~Armed() { state.armed = false; }

}  // namespace rdm::faults
