// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_head.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/container/small_vector.hpp>

#include "qxapi/ascii.h"
#include "qxapi/hex.h"
#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

namespace http = boost::beast::http;
using Parser = http::request_parser<http::empty_body>;

constexpr Refusal not_http{400, "This is not an HTTP/1 request.\n"};
constexpr Refusal malformed{400, "The request head is malformed.\n"};
constexpr Refusal target_too_long{414, "The request target is too long.\n"};
constexpr Refusal head_too_long{431, "The request head is too long.\n"};
constexpr Refusal too_many_fields{431, "The request head has too many fields.\n"};

/// Input with a longer method is refused.
constexpr std::size_t method_limit = 32;
/// Bytes of a request line besides method and target: two spaces and the version.
constexpr std::size_t line_frame = 10;

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), ascii::lower);
  return result;
}

std::string_view view(boost::beast::string_view text) { return {text.data(), text.size()}; }

bool is_request_line(std::string_view line) {
  const auto end = line.rfind(' ');
  if (end == std::string_view::npos || line.find(' ') == end) return false;
  const std::string_view version = line.substr(end + 1);
  return version == "HTTP/1.1" || version == "HTTP/1.0";
}

/// join_repeated appends the values of repeated fields to the first field of that name and removes the others.
void join_repeated(std::vector<hosts::Field> &fields) {
  boost::container::small_vector<hosts::Field *, 32> by_name;
  for (hosts::Field &field : fields) by_name.push_back(&field);
  std::sort(by_name.begin(), by_name.end(),
            [](const auto *a, const auto *b) { return std::tie(a->name, a) < std::tie(b->name, b); });
  hosts::Field *first = nullptr;
  for (hosts::Field *field : by_name) {
    if (first == nullptr || first->name != field->name) {
      first = field;
      continue;
    }
    first->value.append(", ").append(field->value);
    field->name.clear();
  }
  std::erase_if(fields, [](const hosts::Field &field) { return field.name.empty(); });
}

RequestHead convert(const Parser &parser) {
  const auto &message = parser.get();
  RequestHead head;
  head.method = view(message.method_string());
  head.target = view(message.target());
  head.http11 = message.version() == 11;
  head.fields.reserve(static_cast<std::size_t>(std::distance(message.begin(), message.end())));
  for (const auto &field : message)
    head.fields.push_back({lower(view(field.name_string())), std::string(view(field.value()))});
  join_repeated(head.fields);
  if (const auto length = parser.content_length()) head.length = *length;
  head.keep_alive = parser.keep_alive();
  return head;
}

std::size_t count_hosts(const Parser &parser) { return parser.get().count(http::field::host); }

/// check_framing refuses requests that the parser accepts although their end or their host is ambiguous.
std::optional<Refusal> check_framing(const Parser &parser, const RequestHead &head) {
  const bool encoded = parser.get().count(http::field::transfer_encoding) > 0;
  if (encoded && head.length) return Refusal{400, "Content-Length and Transfer-Encoding exclude each other.\n"};
  if (encoded) return Refusal{411, "A Content-Length is required; Transfer-Encoding is not accepted.\n"};
  if (head.http11 && count_hosts(parser) == 0) return Refusal{400, "An HTTP/1.1 request requires a Host field.\n"};
  if (count_hosts(parser) > 1) return Refusal{400, "A request has one Host field.\n"};
  // An empty Host field is valid: a target without an authority requires it.
  const std::string_view host = head.field("host");
  if (!host.empty() && !is_authority(host)) return Refusal{400, "The Host field is malformed.\n"};
  return std::nullopt;
}

std::optional<Refusal> check_expectation(RequestHead &head) {
  const std::string_view expected = head.field("expect");
  if (expected.empty() || !head.http11) return std::nullopt;
  if (!ascii::iequals(expected, "100-continue")) return Refusal{417, "Only 100-continue can be expected.\n"};
  head.expects_continue = true;
  return std::nullopt;
}

bool is_folded(std::string_view text) {
  return text.find("\r\n ") != std::string_view::npos || text.find("\r\n\t") != std::string_view::npos;
}

Refusal parser_refusal(const boost::beast::error_code &error) {
  if (error == http::error::multiple_content_length) return {400, "The request has two different lengths.\n"};
  if (error == http::error::bad_content_length) return {400, "The Content-Length is malformed or contradicted.\n"};
  if (error == http::error::bad_transfer_encoding)
    return {400, "Content-Length and Transfer-Encoding exclude each other.\n"};
  return malformed;
}

HeadResult parse(std::string_view text) {
  if (is_folded(text)) return malformed;
  Parser parser;
  parser.header_limit(static_cast<std::uint32_t>(text.size()) + 1);
  parser.body_limit(boost::none);
  boost::beast::error_code error;
  parser.put(boost::asio::buffer(text.data(), text.size()), error);
  if (error) return parser_refusal(error);
  if (!parser.is_header_done()) return malformed;
  RequestHead head = convert(parser);
  head.line = text.substr(0, text.find('\r'));
  if (const auto refusal = check_framing(parser, head)) return *refusal;
  if (const auto refusal = check_expectation(head)) return *refusal;
  return head;
}

bool is_host_char(char c) {
  return ascii::is_alpha(c) || ascii::is_digit(c) ||
         std::string_view("-._~!$&'()*+,;=").find(c) != std::string_view::npos;
}

/// host_end returns the length of the host at the front of `text`, or 0 if there is none.
std::size_t host_end(std::string_view text) {
  std::size_t at = 0;
  if (text.starts_with('[')) {
    const auto close = text.find(']');
    const std::string_view address = text.substr(1, close == std::string_view::npos ? close : close - 1);
    const bool valid = std::all_of(address.begin(), address.end(), [](char c) { return c == ':' || is_host_char(c); });
    return valid && !address.empty() && close != std::string_view::npos ? close + 1 : 0;
  }
  for (; at < text.size(); ++at) {
    if (is_host_char(text[at])) continue;
    if (hex::escaped_byte(text.substr(at)) < 0) break;
    at += 2;
  }
  return at;
}

/// is_port_or_empty returns true for an empty text, or for digits with a value of at most 65535.
bool is_port_or_empty(std::string_view text) { return text.empty() || parse_number<std::uint16_t>(text).has_value(); }

}  // namespace

bool is_authority(std::string_view text) {
  const std::size_t end = host_end(text);
  const std::string_view port = text.substr(end);
  return end > 0 && (port.empty() || (port.front() == ':' && is_port_or_empty(port.substr(1))));
}

std::string_view RequestHead::field(std::string_view name) const {
  for (const hosts::Field &field : fields)
    if (field.name == name) return field.value;
  return {};
}

std::optional<Refusal> HeadReader::check_unfinished_line(std::string_view text) const {
  const auto blank = text.find(' ');
  const std::string_view method = text.substr(0, std::min(blank, text.size()));
  if (blank == 0 || method.size() > method_limit) return not_http;
  if (!std::all_of(method.begin(), method.end(), hosts::is_token_char)) return not_http;
  if (text.size() > method.size() + limits_.target_bytes + line_frame) return target_too_long;
  return std::nullopt;
}

/// bare_newline returns the refusal for a newline without CR, unless the line before it is refused for an earlier
/// reason, such as its length.
Refusal HeadReader::bare_newline(std::string_view text) const {
  const auto refusal = line_end_ == 0 ? check_unfinished_line(text.substr(0, scanned_)) : std::nullopt;
  return refusal.value_or(not_http);
}

/// scan looks for the end of the request line and of the head in the bytes not yet scanned. It reports the first
/// mistake, so that the answer does not depend on how the bytes are split into packets.
std::optional<Refusal> HeadReader::scan(std::string_view text) {
  for (; scanned_ < text.size() && head_size_ == 0; ++scanned_) {
    if (line_end_ != 0 && scanned_ >= limits_.head_bytes) return head_too_long;
    if (text[scanned_] != '\n') continue;
    if (scanned_ == 0 || text[scanned_ - 1] != '\r') return bare_newline(text);
    if (line_end_ == 0) {
      line_end_ = scanned_ - 1;
      const std::string_view line = text.substr(0, line_end_);
      if (const auto refusal = check_unfinished_line(line)) return refusal;
      if (!is_request_line(line)) return not_http;
    } else if (text[scanned_ - 2] == '\n') {
      head_size_ = scanned_ + 1;
    } else if (++fields_ > limits_.fields) {
      return too_many_fields;
    }
  }
  if (line_end_ == 0) return check_unfinished_line(text);
  if ((head_size_ != 0 ? head_size_ : text.size()) > limits_.head_bytes) return head_too_long;
  return std::nullopt;
}

bool skip_empty_lines(std::string &buffer) {
  std::size_t skipped = 0;
  while (buffer.compare(skipped, 2, "\r\n") == 0) skipped += 2;
  buffer.erase(0, skipped);
  return !buffer.empty() && buffer != "\r";
}

HeadResult HeadReader::take(std::string &buffer) {
  if (scanned_ == 0 && !skip_empty_lines(buffer)) return NeedMore{};
  if (const auto refusal = scan(buffer)) return *refusal;
  if (head_size_ == 0) return NeedMore{};
  HeadResult result = parse(std::string_view(buffer).substr(0, head_size_));
  if (std::holds_alternative<RequestHead>(result)) buffer.erase(0, head_size_);
  return result;
}

}  // namespace rdm::rdmd
