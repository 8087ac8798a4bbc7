// SPDX-License-Identifier: MIT
/// Guards for the support library's objects: each releases its object at the end of its scope.
#ifndef LIBCS_GUARD_H
#define LIBCS_GUARD_H

#include <cstdio>
#include <string_view>

#include <libcs/adt.h>
#include <libcs/soif.h>
#include <qxapi/guard.h>

namespace rdm {

/// cslist_release releases the list and, with its free callback, its items.
inline void cslist_release(cslist *list) noexcept { cslist_do_free(list, 1); }
using ListPtr = std::unique_ptr<cslist, Deleter<cslist_release>>;
using HashTablePtr = std::unique_ptr<cshashtable, Deleter<cshashtable_free>>;
using CsioPtr = std::unique_ptr<csio, Deleter<csio_destroy>>;
using SoifPtr = std::unique_ptr<SOIF, Deleter<soif_free>>;
using SoifBufferPtr = std::unique_ptr<SOIFBuffer, Deleter<soif_buffer_destroy>>;

/// make_csio returns a new buffer that moves to a file when it outgrows `max_memory` bytes (0: never), or null if
/// allocation fails.
inline CsioPtr make_csio(uint32_t max_memory = 0) noexcept {
  csio *io = nullptr;
  csio_create(&io);
  if (io != nullptr) io->max_memory = max_memory;
  return CsioPtr(io);
}

/// make_soif returns a new object, or null if allocation fails. A bucket count below 1 means the default.
inline SoifPtr make_soif(const char *template_name, const char *url, int buckets = 0) noexcept {
  SOIF *object = nullptr;
  soif_create(template_name, url, buckets, &object);
  return SoifPtr(object);
}

inline void close_stdio(FILE *file) noexcept { std::fclose(file); }
using StdioPtr = std::unique_ptr<FILE, Deleter<close_stdio>>;

/// open_stdio opens a file for reading. Returns null, also for a null path, with the reason in host_last_error_text.
inline StdioPtr open_stdio(const char *path) noexcept {
  return StdioPtr(std::fopen(path != nullptr ? path : "", "re"));
}

/// SoifReader is a parse stream that is finished at the end of its scope.
class SoifReader {
 public:
  explicit SoifReader(FILE *file) noexcept : stream_(soif_parse_init_file(file)) {}
  explicit SoifReader(std::string_view text) noexcept
      : stream_(soif_parse_init_string(text.data(), static_cast<int32_t>(text.size()))) {}
  SoifReader(const SoifReader &) = delete;
  SoifReader &operator=(const SoifReader &) = delete;
  ~SoifReader() { soif_parse_finish(stream_); }

  /// accept limits the attributes to a null-terminated list; null keeps all.
  void accept(char **attributes) noexcept { soif_parse_set_accept_attr(stream_, attributes); }
  /// next returns the next object, or null at the end of input and after a syntax error.
  SoifPtr next() noexcept {
    SOIF *object = nullptr;
    soif_parse(stream_, &object);
    return SoifPtr(object);
  }
  /// position returns the number of bytes of a string that have been read.
  int32_t position() const noexcept { return _soif_state[stream_].input_position; }
  bool at_end() const noexcept { return soif_parse_is_eoi(stream_) != 0; }

 private:
  int stream_;
};

/// SoifWriter is a print stream that is finished at the end of its scope.
class SoifWriter {
 public:
  SoifWriter(soif_output_fn output, void *argument) noexcept : stream_(soif_print_init_fn(output, argument)) {}
  explicit SoifWriter(csio *io) noexcept : SoifWriter(csio_append, io) {}
  SoifWriter(const SoifWriter &) = delete;
  SoifWriter &operator=(const SoifWriter &) = delete;
  ~SoifWriter() { soif_print_finish(stream_); }

  void print(const SOIF *object) noexcept { soif_print(stream_, object); }

 private:
  int stream_;
};

}  // namespace rdm

#endif
