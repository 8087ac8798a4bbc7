// SPDX-License-Identifier: MIT
/// The POSIX host's own records, for hosts that replace a part of its table.
#ifndef QXAPI_RECORDS_H
#define QXAPI_RECORDS_H

#include <functional>

#include <qxapi/qxapi.h>

#include "qxapi/name_index.h"

namespace rdm {

/// A pair of a block. Callers hold a pointer to its first member. The pairs that a block makes in its own room are
/// followed by their texts; those of other pairs are blocks of host_alloc, as the pairs themselves.
struct IndexedPair {
  host_param pair;
  host_param **link;  // the `first` of the block, or the `next` of the pair before it
  NameLink<IndexedPair> in_index;
  std::string_view name() const noexcept { return pair.name; }
};

/// size_in_room returns the bytes of a pair and its texts in the room of a block.
constexpr size_t size_in_room(std::string_view name, std::string_view value) noexcept {
  const size_t size = sizeof(IndexedPair) + name.size() + 1 + value.size() + 1;
  return (size + alignof(IndexedPair) - 1) / alignof(IndexedPair) * alignof(IndexedPair);
}

}  // namespace rdm

/// Pairs are linked in the order they were added, the order in which lookups find equal names. Blocks of more than a
/// few pairs also have an index. Hosts may walk the list; only host_param_add and host_param_find_entry change it.
///
/// A block ends with room for its first pairs, so that the blocks of a small request are one allocation each. A pair
/// moves out of the room before a caller gets it, because the caller may release its texts. Room is used once: the
/// memory of a block is bounded by its slots and the pairs that it holds.
struct pblock {
  host_param *first;
  host_param **last;
  size_t count;
  rdm::NameIndex<rdm::IndexedPair> index;
  rdm::IndexedPair *lent;  // the pair that host_param_find_entry returned last; the caller may rename it
  char *unused, *end;      // the unused part of the room, which begins after this record

  bool has_room(size_t size) const noexcept { return size <= static_cast<size_t>(end - unused); }
  bool has_in_room(const rdm::IndexedPair *pair) const noexcept {
    const auto *at = reinterpret_cast<const char *>(pair);
    return std::less_equal<>()(reinterpret_cast<const char *>(this), at) && std::less<>()(at, end);
  }
};

/// A reader and its buffer of `size` bytes, in one block. The bytes from `position` to `filled` are unread.
struct host_buffer {
  host_fd fd;
  int size;
  int position;
  int filled;
  char *bytes() { return reinterpret_cast<char *>(this + 1); }
};

#endif
