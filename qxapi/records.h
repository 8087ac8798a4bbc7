// SPDX-License-Identifier: MIT
/// The POSIX host's own records, for hosts that replace a part of its table.
#ifndef QXAPI_RECORDS_H
#define QXAPI_RECORDS_H

#include <qxapi/qxapi.h>

#include "qxapi/name_index.h"

namespace rdm {

/// A pair of a block. Callers hold a pointer to its first member.
struct IndexedPair {
  host_param pair;
  host_param **link;  // the `first` of the block, or the `next` of the pair before it
  NameLink<IndexedPair> in_index;
  std::string_view name() const noexcept { return pair.name; }
};

}  // namespace rdm

/// Pairs are linked in the order they were added, the order in which lookups find equal names. Blocks of more than a
/// few pairs also have an index. Hosts may walk the list; only host_param_add and host_param_find_entry change it.
struct pblock {
  host_param *first;
  host_param **last;
  size_t count;
  rdm::NameIndex<rdm::IndexedPair> index;
  rdm::IndexedPair *lent;  // the pair that host_param_find_entry returned last; the caller may rename it
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
