// SPDX-License-Identifier: MIT
#include <cstring>
#include <limits>

#include "libcs/guard.h"

using namespace rdm;

namespace {

/// block_size returns the number of bytes to allocate. Growth keeps the text shorter than the buffer, except one
/// created with size 0, which needs a byte for the NUL.
size_t block_size(const SOIFBuffer &buffer, int32_t size) {
  return static_cast<size_t>(size) + (buffer.initial_size == 0 ? 1 : 0);
}

}  // namespace

char *soif_buffer_create(int32_t initial_size, SOIFBuffer **out) noexcept {
  *out = nullptr;
  SoifBufferPtr buffer(host_new<SOIFBuffer>().release());
  if (!buffer) return nullptr;
  buffer->size = buffer->initial_size = initial_size > 0 ? initial_size : 0;
  buffer->data = static_cast<char *>(host_alloc(block_size(*buffer, buffer->size)));
  if (buffer->data == nullptr) return nullptr;
  *out = buffer.release();
  return (*out)->data;
}

char *soif_buffer_increase(SOIFBuffer *b, int32_t n) noexcept {
  if (n < 0 || n > std::numeric_limits<int32_t>::max() - b->size) return nullptr;
  auto *data = static_cast<char *>(host_realloc(b->data, block_size(*b, b->size + n)));
  if (data == nullptr) return nullptr;
  b->size += n;
  return b->data = data;
}

int soif_buffer_append(void *buffer, const void *bytes, int32_t n) noexcept {
  auto *b = static_cast<SOIFBuffer *>(buffer);
  if (n <= 0) return 0;
  // The buffer grows by exactly the size of the appended text.
  if (int64_t{b->length} + n >= b->size && soif_buffer_increase(b, n) == nullptr) return 1;
  char *end = b->data + b->length;
  if (n == 1)
    *end = *static_cast<const char *>(bytes);
  else
    std::memcpy(end, bytes, static_cast<size_t>(n));
  b->length += n;
  b->data[b->length] = '\0';
  return 0;
}

void soif_buffer_destroy(SOIFBuffer *b) noexcept {
  if (b == nullptr) return;
  host_free(b->data);
  host_free(b);
}
