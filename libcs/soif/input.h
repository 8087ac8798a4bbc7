// SPDX-License-Identifier: MIT
/// The input of a parse stream: a file or a string, with the same operations. The parser is a template over both, so
/// that it reads the characters of a string without a call.
#ifndef LIBCS_SOIF_INPUT_H
#define LIBCS_SOIF_INPUT_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include <libcs/soif.h>

#include "libcs/soif/grammar.h"

namespace rdm::soif {

/// A value may end at most this many bytes past the end of a string. Without a limit, a few digits could make the
/// parser fill any amount of memory.
constexpr size_t padding_limit = 65536;

/// The result of next() after the last character.
constexpr int end_of_input = EOF;

/// StringInput reads the string of a slot and stores its position in the slot when it is destroyed.
class StringInput {
 public:
  explicit StringInput(soif_stream &slot) noexcept
      : slot_(slot),
        at_(slot.input_string + std::min(slot.input_position, slot.input_length)),
        end_(slot.input_string + slot.input_length) {}
  StringInput(const StringInput &) = delete;
  StringInput &operator=(const StringInput &) = delete;
  ~StringInput() { slot_.input_position = static_cast<int32_t>(at_ - slot_.input_string); }

  int next() noexcept { return at_ != end_ ? static_cast<unsigned char>(*at_++) : end_of_input; }
  void back_up(int c) noexcept {
    if (c != end_of_input) --at_;
  }

  /// skip_past reads up to and including the next `wanted`. Returns false at the end of input.
  bool skip_past(char wanted) noexcept {
    const auto *found = at_ != end_ ? static_cast<const char *>(std::memchr(at_, wanted, remaining())) : nullptr;
    at_ = found != nullptr ? found + 1 : end_;
    return found != nullptr;
  }

  /// token reads up to the first character for which `stop` returns true, which stays unread. Returns no text at the
  /// end of input or after token_limit characters. The text is part of the string or of `buffer`, of token_limit bytes.
  template <typename Stop>
  std::optional<std::string_view> token(Stop stop, char * /*buffer*/) noexcept {
    const char *const begin = at_;
    const char *const limit = begin + std::min(remaining(), token_limit);
    at_ = std::find_if(begin, limit, [stop](char c) { return stop(static_cast<unsigned char>(c)); });
    if (at_ == limit) return std::nullopt;
    return std::string_view(begin, static_cast<size_t>(at_ - begin));
  }

  /// may_hold returns true if the next `size` bytes end at most padding_limit bytes past the end of the string.
  bool may_hold(size_t size) const noexcept { return size <= remaining() + padding_limit; }

  /// read copies the next `size` bytes to `value`; bytes past the end of the string are 0xFF. Returns true.
  bool read(char *value, size_t size) noexcept {
    const size_t present = std::min(size, remaining());
    if (present > 0) std::memcpy(value, at_, present);
    std::memset(value + present, 0xFF, size - present);
    at_ += present;
    return true;
  }

  void skip(size_t size) noexcept { at_ += std::min(size, remaining()); }
  /// rest returns what is left of the string.
  std::string_view rest() const noexcept { return {at_, remaining()}; }

 private:
  size_t remaining() const noexcept { return static_cast<size_t>(end_ - at_); }

  soif_stream &slot_;
  const char *at_;
  const char *end_;
};

/// FileInput reads a stdio file. It has the operations of StringInput, except that reading a value past the end of the
/// file fails and skipping one never does.
class FileInput {
 public:
  explicit FileInput(FILE *file) noexcept : file_(file) {}

  int next() noexcept { return getc_unlocked(file_); }
  void back_up(int c) noexcept {
    if (c != end_of_input) std::ungetc(c, file_);
  }

  bool skip_past(char wanted) noexcept {
    int c = next();
    while (c != end_of_input && c != wanted) c = next();
    return c != end_of_input;
  }

  template <typename Stop>
  std::optional<std::string_view> token(Stop stop, char *buffer) noexcept {
    for (size_t length = 0; length < token_limit; ++length) {
      const int c = next();
      if (c == end_of_input) break;
      if (stop(c)) {
        back_up(c);
        return std::string_view(buffer, length);
      }
      buffer[length] = static_cast<char>(c);
    }
    return std::nullopt;
  }

  static bool may_hold(size_t) noexcept { return true; }
  bool read(char *value, size_t size) noexcept { return std::fread(value, 1, size, file_) == size; }

  /// skip calls fseeko(), or reads if the file cannot seek (a pipe).
  void skip(size_t size) noexcept {
    if (size == 0 || fseeko(file_, static_cast<off_t>(size), SEEK_CUR) == 0) return;
    char block[token_limit];
    for (size_t got = 1; size > 0 && got > 0; size -= got)
      got = std::fread(block, 1, std::min(size, sizeof block), file_);
  }

 private:
  FILE *file_;
};

}  // namespace rdm::soif

#endif
