// SPDX-License-Identifier: MIT
/// Reading a SOIF stream through a buffer, at any offset.
#ifndef CATALOG_STREAM_INPUT_WINDOW_H
#define CATALOG_STREAM_INPUT_WINDOW_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "libcs/soif/input.h"

namespace rdm::catalog {

/// InputWindow holds a part of a stream in memory. It reads ahead in steps that grow while it moves forward, and start
/// small after a jump: wrong byte counts may lead here and there in a stream.
class InputWindow {
 public:
  /// Read reads up to `count` bytes at an offset and returns how many it has read, 0 at the end. It may throw.
  using Read = std::function<size_t(int64_t offset, char *bytes, size_t count)>;
  explicit InputWindow(Read read) : read_(std::move(read)) {}

  /// from returns bytes of the stream from an offset on, at least one unless the stream ends there. They are valid
  /// until the next call.
  std::string_view from(int64_t offset);
  /// held returns the bytes from `begin` to `end`, or std::nullopt if the window does not hold all of them. They are
  /// valid until the next call of from.
  std::optional<std::string_view> held(int64_t begin, int64_t end) const;

 private:
  void move_to(int64_t offset);
  int64_t end() const { return offset_ + static_cast<int64_t>(bytes_.size()); }

  Read read_;
  std::string bytes_;
  int64_t offset_ = 0;  // of the bytes
  size_t step_ = 0;     // bytes to read next
};

/// WindowInput reads characters and tokens from a window, as the inputs of the parser (libcs/soif/input.h) do.
class WindowInput {
 public:
  WindowInput(InputWindow &window, int64_t offset) : window_(window), end_offset_(offset) {}

  int next() { return at_ != end_ || load() ? static_cast<unsigned char>(*at_++) : soif::end_of_input; }
  void back_up(int c) {
    if (c != soif::end_of_input) --at_;
  }
  template <typename Stop>
  std::optional<std::string_view> token(Stop stop, char *buffer);

  /// offset returns the offset of the next character; seek moves to an offset.
  int64_t offset() const { return end_offset_ - (end_ - at_); }
  void seek(int64_t offset);
  /// met_end returns true if the end of the stream was met since the last seek.
  bool met_end() const { return met_end_; }

 private:
  bool load();

  InputWindow &window_;
  const char *at_ = nullptr, *end_ = nullptr;
  int64_t end_offset_;  // of end_
  bool met_end_ = false;
};

/// token takes a token that the window holds as it is, and collects another one in the buffer.
template <typename Stop>
std::optional<std::string_view> WindowInput::token(Stop stop, char *buffer) {
  const char *const begin = at_;
  const char *const limit = begin + std::min<size_t>(static_cast<size_t>(end_ - begin), soif::token_limit);
  at_ = std::find_if(begin, limit, [stop](char c) { return stop(static_cast<unsigned char>(c)); });
  if (at_ != limit) return std::string_view(begin, static_cast<size_t>(at_ - begin));
  auto length = static_cast<size_t>(limit - begin);
  std::copy(begin, limit, buffer);
  for (; length < soif::token_limit; ++length) {
    const int c = next();
    if (c == soif::end_of_input) break;
    if (stop(c)) {
      back_up(c);
      return std::string_view(buffer, length);
    }
    buffer[length] = static_cast<char>(c);
  }
  return std::nullopt;
}

}  // namespace rdm::catalog

#endif
