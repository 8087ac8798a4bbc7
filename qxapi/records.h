/// The POSIX host's own records, for hosts that build on its table and replace a part of what works on them.
#ifndef QXAPI_RECORDS_H
#define QXAPI_RECORDS_H

#include <qxapi/qxapi.h>

/// Pairs are chained in the order they were added, which is the order in which equal names are found. Blocks hold a
/// dozen pairs, so a chain is searched as fast as a table.
struct pblock {
  host_param *first;
  host_param **last;
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
