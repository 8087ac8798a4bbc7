// SPDX-License-Identifier: MIT
/// The file of a CSIO buffer and the write-behind block with the bytes that follow those in the file.
#ifndef LIBCS_ADT_CSIO_FILE_H
#define LIBCS_ADT_CSIO_FILE_H

#include <libcs/adt.h>

namespace rdm::csio_file {

/// open_to_append prepares the file for store: it makes a temporary name for a buffer without one and opens the file.
/// Returns false, and logs the reason, if it fails.
bool open_to_append(csio &io) noexcept;

/// store appends bytes. Returns `count`, or 0 if allocation or write() fails. The caller updates the length.
int32_t store(csio &io, const unsigned char *bytes, int32_t count) noexcept;

/// flush writes the write-behind block to the file, or drops it if the file is not open. Errors are not reported; the
/// block is empty afterwards.
void flush(csio &io) noexcept;

/// read copies up to `count` bytes of the file from the read position. Returns their number, or -1. It flushes an
/// unfinished buffer whose file is open.
int32_t read(csio &io, void *destination, int32_t count) noexcept;

/// close closes the descriptor if it is open.
void close(csio &io) noexcept;

/// discard closes the file, removes it if the buffer created it, and releases the memory of the file backing.
void discard(csio &io) noexcept;

}  // namespace rdm::csio_file

#endif
