// SPDX-License-Identifier: MIT
/// The head of an answer: status line and header fields.
#ifndef HOSTS_COMMON_HEAD_H
#define HOSTS_COMMON_HEAD_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <qxapi/qxapi.h>

#include "qxapi/ascii.h"

namespace rdm::hosts {

struct Field {
  std::string name;
  std::string value;
};

/// Head is what the plug-in set before its answer began; nothing changes it later. `length` is the content length it
/// declared; without one the end of the connection ends the answer.
struct Head {
  int status = 200;
  std::string reason;
  std::vector<Field> fields;
  std::optional<std::int64_t> length;
};

/// is_token_char tells whether a character may stand in a method or a field name.
constexpr bool is_token_char(char c) {
  return ascii::is_alpha(c) || ascii::is_digit(c) ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

/// reason_phrase returns the usual text of a status, "Unknown" for one without.
std::string_view reason_phrase(int status);

/// has_body tells whether an answer of this status carries a body at all.
bool has_body(int status);

/// freeze_head builds a head from a status, a reason (empty: the usual text) and the plug-in's response headers, which
/// stay as they were given, with these exceptions: control characters become blanks, so that no value starts a line of
/// its own; a name that is no token is dropped, and so are fields that belong to the host (Connection, Date,
/// Keep-Alive, Server, Trailer, Transfer-Encoding, Upgrade), any content length but the first, and one that is not a
/// decimal number. A status outside 200 to 599 becomes 500.
Head freeze_head(int status, std::string_view reason, const pblock &response);

/// text_head is the head of an answer that the host gives itself: `length` bytes of plain text.
Head text_head(int status, std::int64_t length);

/// HeadFrame is what the host adds to a head.
struct HeadFrame {
  std::string_view server;      // the Server field
  std::time_t now;              // the Date field
  std::string_view connection;  // "close", "keep-alive", or empty for no Connection field
};

/// render_head returns status line, Date, Server, the fields of the head and Connection, up to and with the empty line.
/// A head of status 503 without a Retry-After field gets one.
std::string render_head(const Head &head, const HeadFrame &frame);

}  // namespace rdm::hosts

#endif
