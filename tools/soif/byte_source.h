// SPDX-License-Identifier: MIT
/// Reading an input byte by byte.
#ifndef SOIF_BYTE_SOURCE_H
#define SOIF_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace rdm::soif_tool {

/// The largest record of an input: larger ones end the reading with a Failure, so that memory does not grow with a
/// quote or a bracket that is never closed.
constexpr size_t largest_record = size_t{300} << 20;

/// ByteSource reads an input through a buffer and counts its lines.
class ByteSource {
 public:
  /// Read stores up to `size` bytes and returns how many it has stored, 0 at the end. It may throw.
  using Read = std::function<size_t(char *bytes, size_t size)>;
  /// ByteSource reads from the start; `name` names the input in messages. It skips a UTF-8 byte order mark.
  ByteSource(Read read, std::string name);

  static constexpr int end = -1;
  /// peek returns the next byte, or `end`; next also passes it.
  int peek() { return at_ != end_ || load() ? static_cast<unsigned char>(buffer_[at_]) : end; }
  int next() {
    const int c = peek();
    if (c == end) return end;
    ++at_;
    ++column_;
    if (c == '\n') ++line_, column_ = 1;
    return c;
  }
  /// block returns the bytes of the buffer that next would return, at least one unless the input has ended, and passes
  /// them. They are valid until the next call of a procedure; line and column do not count them.
  std::string_view block() {
    peek();
    const size_t from = std::exchange(at_, end_);
    return std::string_view(buffer_).substr(from, end_ - from);
  }
  /// line and column return the place of the next byte, from 1.
  int64_t line() const { return line_; }
  int64_t column() const { return column_; }
  const std::string &name() const { return name_; }
  /// require_room throws a Failure if a record of `size` bytes, which begins in a line, is too large.
  void require_room(size_t size, int64_t line) const;

 private:
  bool load();

  Read read_;
  std::string name_;
  std::string buffer_;
  size_t at_ = 0, end_ = 0;  // of the unread bytes
  int64_t line_ = 1, column_ = 1;
};

}  // namespace rdm::soif_tool

#endif
