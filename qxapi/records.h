// SPDX-License-Identifier: MIT
/// The POSIX host's own records, for hosts that build on its table and replace a part of what works on them.
#ifndef QXAPI_RECORDS_H
#define QXAPI_RECORDS_H

#include <qxapi/qxapi.h>

#include "qxapi/name_index.h"

namespace rdm {

/// A pair as blocks keep it. What callers hold is its first member.
struct IndexedPair {
  host_param pair;
  host_param **link;  // the `first` of the block, or the `next` of the pair before it
  NameLink<IndexedPair> in_index;
  std::string_view name() const noexcept { return pair.name; }
};

}  // namespace rdm

/// Pairs are chained in the order they were added, which is the order in which equal names are found. Past a few of
/// them there is an index beside the chain. Hosts may walk the chain; only host_param_add and host_param_find_entry
/// change it.
struct pblock {
  host_param *first;
  host_param **last;
  size_t count;
  rdm::NameIndex<rdm::IndexedPair> index;
  rdm::IndexedPair *lent;  // the last one that host_param_find_entry left in the block: its holder may rename it
};

/// A reader and its `size` bytes of buffer, in one block: the bytes from `position` to `filled` are not yet given out.
struct host_buffer {
  host_fd fd;
  int size;
  int position;
  int filled;
  char *bytes() { return reinterpret_cast<char *>(this + 1); }
};

#endif
