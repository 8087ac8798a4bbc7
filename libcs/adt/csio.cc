// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include <libcs/adt.h>
#include <libcs/log.h>

#include "libcs/adt/csio_file.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

constexpr uint32_t default_increment = 4096;
constexpr uint32_t max_length = std::numeric_limits<uint32_t>::max();

bool in_memory(const csio &io) { return (io.flags & CSIO_MEMORY) != 0; }
bool in_file(const csio &io) { return (io.flags & CSIO_FILE) != 0; }

/// fits returns true if the length, and in memory the NUL, still is a 32-bit number after adding `count` bytes.
bool fits(const csio &io, uint32_t count) {
  const uint32_t limit = in_memory(io) ? max_length - 1 : max_length;
  return io.length <= limit && count <= limit - io.length;
}

/// allocate resizes the block to its capacity. If realloc() fails, the block is released and its bytes are lost; when a
/// later allocation succeeds, they read as NULs.
void allocate(csio &io) {
  if (io.capacity == 0) return;
  if (io.data == nullptr) {
    io.data = static_cast<unsigned char *>(host_alloc(io.capacity));
    if (io.data != nullptr) std::memset(io.data, 0, std::min(size_t{io.length} + 1, size_t{io.capacity}));
    return;
  }
  void *const grown = host_realloc(io.data, io.capacity);
  if (grown == nullptr) host_free(io.data);
  io.data = static_cast<unsigned char *>(grown);
}

void reserve(csio &io, uint32_t count) {
  const uint32_t needed = io.length + count + 1;
  if (in_memory(io) && io.capacity < needed) csio_increase(&io, needed - io.capacity);
}

int32_t store_in_memory(csio &io, const void *bytes, int32_t count) {
  if (io.data == nullptr) return 0;
  std::memcpy(io.data + io.length, bytes, static_cast<size_t>(count));
  io.data[io.length + static_cast<uint32_t>(count)] = '\0';
  return count;
}

/// store appends bytes to the current backing. Returns the number stored. Bytes that could not be stored still count in
/// the length, unless the file could not be opened.
int32_t store(csio &io, const void *bytes, int32_t count) {
  int32_t stored = 0;
  if (in_memory(io))
    stored = store_in_memory(io, bytes, count);
  else if (in_file(io) && csio_file::open_to_append(io))
    stored = csio_file::store(io, static_cast<const unsigned char *>(bytes), count);
  else
    return 0;
  io.length += static_cast<uint32_t>(count);
  return stored;
}

/// append_block appends any number of bytes, also more than one csio_append takes.
void append_block(csio &io, const unsigned char *bytes, uint32_t count) {
  constexpr uint32_t most = std::numeric_limits<int32_t>::max();
  while (bytes != nullptr && count > 0) {
    const uint32_t part = std::min(count, most);
    csio_append(&io, bytes, static_cast<int32_t>(part));
    bytes += part;
    count -= part;
  }
}

/// copy_to_file writes the bytes in memory to a file. The buffer is then open for writing and backed by that file.
void copy_to_file(csio &io) {
  const uint32_t length = std::exchange(io.length, 0);
  io.finished = 0;
  io.flags = CSIO_FILE;
  append_block(io, io.data, length);
}

}  // namespace

csio *csio_create(csio **out) noexcept {
  HostPtr<csio> io = host_new<csio>();
  if (io) {
    io->flags = CSIO_MEMORY;
    io->increment = default_increment;
    io->fd = -1;
  }
  return *out = io.release();
}

void csio_increase(csio *io, uint32_t need) noexcept {
  if (!in_memory(*io)) return;
  io->capacity += std::min(std::max(need, io->increment), max_length - io->capacity);
  if (io->max_memory != 0 && io->max_memory < io->capacity && !in_file(*io))
    csio_convert2file(io);
  else
    allocate(*io);
}

int csio_append(void *io, const void *bytes, int32_t count) noexcept {
  csio &buffer = *static_cast<csio *>(io);
  if (buffer.finished != 0) {
    CSLOG(CSLOG_WARNING, "adt", "CSIO Buffer was already closed to writing?\n");
    return 0;
  }
  if (bytes == nullptr) {
    csio_file::flush(buffer);
    return 0;
  }
  if (count <= 0) return 0;
  const auto size = static_cast<uint32_t>(count);
  if (!fits(buffer, size)) {
    CSLOG(CSLOG_ERROR, "adt", "csio_append: No room for %u bytes after %u?\n", size, buffer.length);
    return 0;
  }
  reserve(buffer, size);
  return store(buffer, bytes, count);
}

int csio_finish(csio *io) noexcept {
  if (io->finished != 0) return 0;
  csio_append(io, nullptr, 0);
  csio_releasefd(io);
  io->finished = 1;
  return 0;
}

void csio_rewind(csio *io) noexcept {
  if (io == nullptr) return;
  if (io->finished == 0) csio_append(io, nullptr, 0);
  io->position = 0;
}

int32_t csio_copy(csio *io, void *destination, int32_t n) noexcept {
  if (n <= 0 || io->position >= io->length) return 0;
  int32_t count = static_cast<int32_t>(std::min(io->length - io->position, static_cast<uint32_t>(n)));
  if (in_memory(*io)) {
    if (io->data == nullptr) return 0;
    std::memcpy(destination, io->data + io->position, static_cast<size_t>(count));
  } else if (in_file(*io)) {
    count = csio_file::read(*io, destination, count);
  } else {
    return 0;
  }
  if (count >= 1) io->position += static_cast<uint32_t>(count);
  return count;
}

int csio_convert2file(csio *io) noexcept {
  if (!in_memory(*io) || in_file(*io)) return 0;
  const int32_t finished = io->finished;
  copy_to_file(*io);
  host_free(io->data);
  io->data = nullptr;
  io->capacity = 0;
  const int flushed = csio_append(io, nullptr, 0);
  io->finished = finished;
  return flushed;
}

int csio_dup2file(csio *io) noexcept {
  if (!in_memory(*io) || in_file(*io)) return static_cast<int>(io->flags);
  csio_finish(io);
  const uint32_t length = io->length;
  copy_to_file(*io);
  const int flushed = csio_append(io, nullptr, 0);
  io->flags = CSIO_MEMORY | CSIO_FILE;
  io->length = length;
  io->finished = 1;
  return flushed;
}

int csio_releasefd(csio *io) noexcept {
  if (in_file(*io)) csio_file::close(*io);
  return 0;
}

void csio_reset(csio *io) noexcept {
  if (io == nullptr) return;
  if (in_memory(*io)) {
    host_free(io->data);
    io->data = nullptr;
    io->capacity = 0;
  }
  if (in_file(*io)) csio_file::discard(*io);
  io->length = 0;
  io->position = 0;
  io->finished = 0;
}

void csio_destroy(csio *io) noexcept {
  csio_reset(io);
  host_free(io);
}
