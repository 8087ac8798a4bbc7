// SPDX-License-Identifier: MIT
/// The file behind a CSIO buffer: the bytes in it and, after them, those that wait in the write-behind block.
#ifndef LIBCS_ADT_CSIO_FILE_H
#define LIBCS_ADT_CSIO_FILE_H

#include <libcs/adt.h>

namespace rdm::csio_file {

/// open_to_append makes the file ready for store: it finds a temporary name for a buffer that has none and opens the
/// file. False, with the reason in the log, when there is no file.
bool open_to_append(csio &io) noexcept;

/// store puts bytes behind those of the file and returns how many: `count`, or 0 when memory or the write fails. The
/// length is the caller's to keep.
int32_t store(csio &io, const unsigned char *bytes, int32_t count) noexcept;

/// flush writes what waits to the file, or drops it when the file is not open. Errors are not reported; nothing waits
/// afterwards.
void flush(csio &io) noexcept;

/// read copies up to `count` bytes of the file from the read position. How many, or -1. It flushes an unfinished buffer
/// whose file is open.
int32_t read(csio &io, void *destination, int32_t count) noexcept;

/// close closes the descriptor, when it is open.
void close(csio &io) noexcept;

/// discard closes the file, removes it when the buffer made it, and releases all that the file backing holds.
void discard(csio &io) noexcept;

}  // namespace rdm::csio_file

#endif
