// SPDX-License-Identifier: MIT
#include <charconv>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "libcs/guard.h"
#include "libcs/soif/grammar.h"
#include "libcs/soif/stream.h"

using namespace rdm;

namespace {

constexpr int32_t initial_string_size = 4096;

void output_buffer(int stream, const void *bytes, int32_t length) {
  const soif_stream *slot = soif::slot(stream);
  if (slot != nullptr && slot->output != nullptr) slot->output(slot->output_argument, bytes, length);
}

void output_char(int stream, char c) { output_buffer(stream, &c, 1); }

/// output_line writes the pieces with one call of the output function. When memory for a long line fails, it uses one
/// call for each piece.
void output_line(int stream, std::initializer_list<std::string_view> pieces) {
  char local[1024];
  size_t length = 0;
  for (std::string_view piece : pieces) length += piece.size();
  const HostText block(length > sizeof local ? static_cast<char *>(host_alloc(length)) : nullptr);
  char *const line = length > sizeof local ? block.get() : local;
  char *end = line;
  for (std::string_view piece : pieces)
    if (line == nullptr)
      output_buffer(stream, piece.data(), static_cast<int32_t>(piece.size()));
    else
      end += piece.copy(end, piece.size());
  if (line != nullptr) output_buffer(stream, line, static_cast<int32_t>(length));
}

void print_pair(int stream, const AVPair &pair) {
  char digits[12];
  const auto size = static_cast<size_t>(std::to_chars(digits, std::end(digits), pair.vsize).ptr - digits);
  output_line(stream, {pair.attribute, "{", {digits, size}, soif::size_end});
  output_buffer(stream, pair.value, pair.vsize);
  output_char(stream, '\n');
}

/// print_bucket omits empty values by design: for readers, an empty attribute equals a missing one.
void print_bucket(int stream, const cslist &bucket) {
  for (const cslist_node *node = bucket.head; node != nullptr; node = node->next) {
    const auto *pair = static_cast<const AVPair *>(node->data);
    if (pair != nullptr && pair->vsize > 0) print_pair(stream, *pair);
  }
}

int fwrite_wrapper(void *file, const void *bytes, int32_t length) {
  return static_cast<int>(std::fwrite(bytes, 1, static_cast<size_t>(length), static_cast<FILE *>(file)));
}

}  // namespace

int soif_print_init_fn(soif_output_fn fn, void *argument) noexcept {
  const int stream = soif::activate();
  _soif_state[stream].output = fn;
  _soif_state[stream].output_argument = argument;
  return stream;
}

int soif_print_init_file(FILE *file) noexcept {
  return soif_print_init_fn(file != nullptr ? fwrite_wrapper : nullptr, file);
}

int soif_print_init_string(SOIFBuffer **out) noexcept {
  soif_buffer_create(initial_string_size, out);
  return soif_print_init_fn(*out != nullptr ? soif_buffer_append : nullptr, *out);
}

int soif_print(int stream, const SOIF *s) noexcept {
  soif_print_header(stream, s);
  soif_print_body(stream, s);
  soif_print_trailer(stream);
  return 0;
}

int soif_print_header(int stream, const SOIF *s) noexcept {
  output_line(stream, {"@", s->template_name, " { ", s->url, "\n"});
  return 0;
}

int soif_print_body(int stream, const SOIF *s) noexcept {
  const cshashtable &table = *s->attrs;
  for (int32_t i = 0; i < table.nbuckets; ++i)
    if (table.buckets[i] != nullptr) print_bucket(stream, *table.buckets[i]);
  return 0;
}

int soif_print_trailer(int stream) noexcept {
  output_buffer(stream, "}\n", 2);
  return 0;
}

int soif_print_finish(int stream) noexcept {
  soif::deactivate(stream);
  return 0;
}
