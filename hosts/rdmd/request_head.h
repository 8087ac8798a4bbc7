// SPDX-License-Identifier: MIT
/// The head of a request, read strictly: what two HTTP implementations could understand in two ways is refused.
#ifndef HOSTS_RDMD_REQUEST_HEAD_H
#define HOSTS_RDMD_REQUEST_HEAD_H

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
  std::string line;  // the request line as it was sent
  std::string method;
  std::string target;
  bool http11 = false;
  std::vector<hosts::Field> fields;     // names in lower case; repeated fields joined by ", " where the first stood
  std::optional<std::uint64_t> length;  // the announced content length
  bool keep_alive = false;
  bool expects_continue = false;

  /// field returns the value of a field by its lower-case name, empty when absent.
  std::string_view field(std::string_view name) const;
};

/// Refusal is an answer that the host gives itself before it closes the connection: a status and a line of text.
struct Refusal {
  int status;
  std::string_view text;
};

/// is_authority returns true if a text is a host, which is not empty, with an optional port of at most 65535: what a
/// Host field says and what stands behind "http://".
bool is_authority(std::string_view text);

/// The most fields that a request head may have, repeated ones included.
inline constexpr std::size_t field_limit = 200;

struct NeedMore {};
using HeadResult = std::variant<NeedMore, RequestHead, Refusal>;

/// skip_empty_lines removes the empty lines at the front of `buffer`, where a request is to begin. False when nothing
/// of a request is left, which may be the first half of another empty line.
bool skip_empty_lines(std::string &buffer);

class HeadReader {
 public:
  HeadReader(std::size_t head_limit, std::size_t target_limit) : head_limit_(head_limit), target_limit_(target_limit) {}

  /// take looks for a head at the front of `buffer`, which only grows from call to call, and removes it when it is
  /// complete. Empty lines before it are removed. What cannot become a request is refused as soon as that
  /// shows, not when the head is complete; a refused buffer is left as it is.
  HeadResult take(std::string &buffer);

 private:
  std::optional<Refusal> scan(std::string_view text);
  std::optional<Refusal> check_unfinished_line(std::string_view text) const;
  Refusal bare_newline(std::string_view text) const;

  std::size_t head_limit_;
  std::size_t target_limit_;
  std::size_t scanned_ = 0;    // bytes looked at, none of which ends the head
  std::size_t line_end_ = 0;   // length of the request line, once it is complete
  std::size_t head_size_ = 0;  // length of the head with its empty line, once it is complete
  std::size_t fields_ = 0;     // complete lines of fields
};

}  // namespace rdm::rdmd

#endif
