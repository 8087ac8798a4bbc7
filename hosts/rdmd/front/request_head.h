// SPDX-License-Identifier: MIT
/// Strict parsing of a request head: anything that two HTTP implementations could read differently is refused.
#ifndef HOSTS_RDMD_FRONT_REQUEST_HEAD_H
#define HOSTS_RDMD_FRONT_REQUEST_HEAD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hosts/common/head.h"

namespace rdm::rdmd {

struct RequestHead {
  std::string line;  // the request line as sent
  std::string method;
  std::string target;
  bool http11 = false;
  std::vector<hosts::Field>
      fields;  // names in lower case; repeated fields are joined by ", " at the first one's position
  std::optional<std::uint64_t> length;  // the declared content length
  bool keep_alive = false;
  bool expects_continue = false;

  /// field returns the value of the field with this lower-case name, or an empty string.
  std::string_view field(std::string_view name) const;
};

/// Refusal is an answer of the host itself, a status and a line of text, after which the connection is closed.
struct Refusal {
  int status;
  std::string_view text;
};

/// is_authority returns true if `text` is a non-empty host with an optional port of at most 65535, as in a Host field
/// or after "http://".
bool is_authority(std::string_view text);

/// HeadLimits limits a request head: all its bytes, those of its target, and its fields, of which repeated ones count
/// each time.
struct HeadLimits {
  std::size_t head_bytes;
  std::size_t target_bytes;
  std::size_t fields;
};

struct NeedMore {};
using HeadResult = std::variant<NeedMore, RequestHead, Refusal>;

/// skip_empty_lines removes the empty lines at the front of `buffer`. Returns false if no byte of a request is left:
/// the buffer is empty, or holds only "\r", which may begin another empty line.
bool skip_empty_lines(std::string &buffer);

class HeadReader {
 public:
  explicit HeadReader(const HeadLimits &limits) : limits_(limits) {}

  /// take looks for a head at the front of `buffer`, to which the caller only appends between calls, and removes it
  /// once it is complete. Empty lines before it are removed. Input that cannot become a request is refused as soon as
  /// possible, before the head is complete; a refused buffer is unchanged.
  HeadResult take(std::string &buffer);

 private:
  std::optional<Refusal> scan(std::string_view text);
  std::optional<Refusal> check_unfinished_line(std::string_view text) const;
  Refusal bare_newline(std::string_view text) const;

  HeadLimits limits_;
  std::size_t scanned_ = 0;    // bytes scanned so far; the head does not end in them
  std::size_t line_end_ = 0;   // length of the request line, once complete
  std::size_t head_size_ = 0;  // length of the head with its empty line, once complete
  std::size_t fields_ = 0;     // number of complete field lines
};

}  // namespace rdm::rdmd

#endif
