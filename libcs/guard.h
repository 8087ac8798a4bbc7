/// Guards over the support library's objects: each releases what it holds when it goes out of scope.
#ifndef LIBCS_GUARD_H
#define LIBCS_GUARD_H

#include <cstdio>
#include <string_view>

#include <libcs/adt.h>
#include <libcs/soif.h>
#include <qxapi/guard.h>

/// list_ptr releases the list and, through its free callback, its items.
inline void cslist_release(cslist *list) noexcept { cslist_do_free(list, 1); }
using list_ptr = std::unique_ptr<cslist, deleter<cslist_release>>;
using hashtable_ptr = std::unique_ptr<cshashtable, deleter<cshashtable_free>>;
using csio_ptr = std::unique_ptr<csio, deleter<csio_destroy>>;
using soif_ptr = std::unique_ptr<SOIF, deleter<soif_free>>;
using soif_buffer_ptr = std::unique_ptr<SOIFBuffer, deleter<soif_buffer_destroy>>;

/// make_csio returns a new buffer that moves to a file past `max_memory` bytes (0: never).
inline csio_ptr make_csio(uint32_t max_memory = 0) noexcept {
  csio *io = nullptr;
  csio_create(&io);
  if (io != nullptr) io->max_memory = max_memory;
  return csio_ptr(io);
}

/// make_soif returns a new object; a bucket count below 1 means the default.
inline soif_ptr make_soif(const char *template_name, const char *url, int buckets = 0) noexcept {
  SOIF *object = nullptr;
  soif_create(template_name, url, buckets, &object);
  return soif_ptr(object);
}

inline void close_stdio(FILE *file) noexcept { std::fclose(file); }
using stdio_ptr = std::unique_ptr<FILE, deleter<close_stdio>>;

/// open_stdio opens a file for reading. Null, also for a null path, leaves the reason to host_last_error_text.
inline stdio_ptr open_stdio(const char *path) noexcept {
  return stdio_ptr(std::fopen(path != nullptr ? path : "", "re"));
}

/// soif_reader is a parse stream that closes with its scope.
class soif_reader {
 public:
  explicit soif_reader(FILE *file) noexcept : stream_(soif_parse_init_file(file)) {}
  explicit soif_reader(std::string_view text) noexcept
      : stream_(soif_parse_init_string(text.data(), static_cast<int32_t>(text.size()))) {}
  soif_reader(const soif_reader &) = delete;
  soif_reader &operator=(const soif_reader &) = delete;
  ~soif_reader() { soif_parse_finish(stream_); }

  /// accept keeps only the attributes of a null-terminated list; null keeps all.
  void accept(char **attributes) noexcept { soif_parse_set_accept_attr(stream_, attributes); }
  /// next returns the next object, or null at the end and after a syntax error.
  soif_ptr next() noexcept {
    SOIF *object = nullptr;
    soif_parse(stream_, &object);
    return soif_ptr(object);
  }
  /// position returns how many bytes of a string have been read.
  int32_t position() const noexcept { return _soif_state[stream_].input_position; }
  bool at_end() const noexcept { return soif_parse_is_eoi(stream_) != 0; }

 private:
  int stream_;
};

/// soif_writer is a print stream that closes with its scope.
class soif_writer {
 public:
  soif_writer(soif_output_fn output, void *argument) noexcept : stream_(soif_print_init_fn(output, argument)) {}
  explicit soif_writer(csio *io) noexcept : soif_writer(csio_append, io) {}
  soif_writer(const soif_writer &) = delete;
  soif_writer &operator=(const soif_writer &) = delete;
  ~soif_writer() { soif_print_finish(stream_); }

  void print(const SOIF *object) noexcept { soif_print(stream_, object); }

 private:
  int stream_;
};

#endif
