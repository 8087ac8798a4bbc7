// SPDX-License-Identifier: MIT
#include <cerrno>
#include <new>

#include "qxapi/guard.h"
#include "qxapi/posix.h"
#include "qxapi/records.h"

namespace rdm::posix_host {
namespace {

/// next_byte returns the next byte, `end` or `failure`.
constexpr int end = -1, failure = -2;

int next_byte(host_buffer &b) {
  if (b.position == b.filled) {
    b.position = b.filled = 0;
    const int32_t got = host_read(b.fd, b.bytes(), b.size);
    if (got <= 0) return got == 0 ? end : failure;
    b.filled = got;
  }
  return static_cast<unsigned char>(b.bytes()[b.position++]);
}

}  // namespace

host_buffer *buffer_open(host_fd fd, int size) {
  if (fd == -1 || size < 1) return nullptr;
  void *block = host_alloc(sizeof(host_buffer) + static_cast<size_t>(size));
  return block == nullptr ? nullptr : new (block) host_buffer{fd, size, 0, 0};
}

int read_line(host_buffer *b, int /*line_number*/, int limit, char *line) {
  if (limit < 1) return -1;
  int length = 0;
  bool any = false, cut = false;
  int byte = 0;
  while ((byte = next_byte(*b)) >= 0 && byte != '\n') {
    any = true;
    if (length < limit - 1)
      line[length++] = static_cast<char>(byte);
    else
      cut = true;
  }
  // Drop a CR before the newline, but not from a truncated line.
  if (byte == '\n' && !cut && length > 0 && line[length - 1] == '\r') --length;
  line[length] = '\0';
  if (byte == failure) return -1;
  return byte == '\n' || any ? 0 : 1;
}

void buffer_close(host_buffer *b) { host_free(b); }

int64_t buffer_send(host_buffer *, host_net *) {
  errno = ENOTCONN;
  return -1;
}

}  // namespace rdm::posix_host
