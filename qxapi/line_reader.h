// SPDX-License-Identifier: MIT
/// Reads the lines of a configuration file through the host.
#ifndef QXAPI_LINE_READER_H
#define QXAPI_LINE_READER_H

#include "qxapi/guard.h"

namespace rdm {

/// LineReader reads a file line by line. A line has at most 8191 bytes; the host cuts longer ones. When a procedure
/// fails, host_last_error_text returns the reason.
class LineReader {
 public:
  static constexpr int line_size = 8192;

  /// Opens the file and a host_buffer of `buffer_size` bytes.
  LineReader(const char *path, int buffer_size) noexcept
      : file_(host_open_read(path)), buffer_(file_ ? host_buffer_open(file_.get(), buffer_size) : nullptr) {}

  /// is_open returns true if the file could be opened.
  bool is_open() const noexcept { return static_cast<bool>(file_); }
  /// The reader is true if there is a buffer, too: only then may next be called.
  explicit operator bool() const noexcept { return buffer_ != nullptr; }

  /// next returns the next line that is neither empty nor a comment, which begins with "#". The caller may change it.
  /// Returns null at the end of the file and after a read error.
  char *next() noexcept {
    while ((result_ = host_getline(buffer_.get(), 0, line_size, line_)) == 0)
      if (*line_ != '\0' && *line_ != '\n' && *line_ != '#') return line_;
    return nullptr;
  }

  /// is_at_end returns true if next has returned null because the file has ended.
  bool is_at_end() const noexcept { return result_ == 1; }

 private:
  HostFileGuard file_;
  ReaderPtr buffer_;
  int result_ = 0;
  char line_[line_size];
};

}  // namespace rdm

#endif
