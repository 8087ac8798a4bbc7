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

/// Head is the status line and the fields of an answer; it does not change once made. `length` is the declared content
/// length. Without one, the end of the connection marks the end of the answer.
struct Head {
  int status = 200;
  std::string reason;
  std::vector<Field> fields;
  std::optional<std::int64_t> length;
};

/// is_token_char returns true if a method or a field name may contain `c` (RFC 9110, tchar).
constexpr bool is_token_char(char c) {
  return ascii::is_alpha(c) || ascii::is_digit(c) ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

/// reason_phrase returns the usual text of a status, or "Unknown".
std::string_view reason_phrase(int status);

/// has_body returns true if an answer of this status may have a body.
bool has_body(int status);

/// has_field returns true if the head has a field of this name, in any case.
bool has_field(const Head &head, std::string_view name);

/// freeze_head makes a head from a status, a reason (empty: the usual text) and the plug-in's response headers. Fields
/// are copied unchanged, except that
/// - control characters become spaces, so that no value can start a new line;
/// - fields whose name is not a token, or that the host sets itself (Connection, Date, Keep-Alive, Server, Trailer,
/// Transfer-Encoding, Upgrade, X-Request-Id), are dropped;
/// - only the first Content-Length is kept, and only if it is a decimal number.
/// A status outside 200 to 599 becomes 500.
Head freeze_head(int status, std::string_view reason, const pblock &response);

/// text_head returns the head of an answer by the host itself: `length` bytes of plain text.
Head text_head(int status, std::int64_t length);

/// HeadFrame holds the values that the host adds to a head.
struct HeadFrame {
  std::string_view server;           // the Server field
  std::time_t now;                   // the Date field
  std::string_view connection;       // "close", "keep-alive", or empty for no Connection field
  std::string_view request_id = {};  // the X-Request-Id field, or empty for none
};

/// render_head returns the head as sent: status line, Date, Server, X-Request-Id, the fields of the head, Connection
/// and an empty line. If the status is 503 and there is no Retry-After field, it adds one.
std::string render_head(const Head &head, const HeadFrame &frame);

}  // namespace rdm::hosts

#endif
