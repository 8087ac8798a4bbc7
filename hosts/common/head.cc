// SPDX-License-Identifier: MIT
#include "hosts/common/head.h"

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/common/http_date.h"
#include "qxapi/ascii.h"
#include "qxapi/escaped.h"
#include "qxapi/number.h"
#include "qxapi/records.h"
#include "qxapi/words.h"

namespace rdm::hosts {
namespace {

constexpr std::pair<int, std::string_view> reasons[] = {
    {200, "OK"},
    {204, "No Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {304, "Not Modified"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {411, "Length Required"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {417, "Expectation Failed"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {503, "Service Unavailable"},
};

constexpr std::string_view host_fields[] = {"connection", "date",    "keep-alive",        "server",
                                            "trailer",    "upgrade", "transfer-encoding", "x-request-id"};

/// The Retry-After value of a 503, in seconds: connections that block others have ended by then.
constexpr std::string_view retry_after = "5";

/// The size of most heads; a larger one is no error.
constexpr std::size_t usual_head = 500;

bool is_token(std::string_view name) { return !name.empty() && std::all_of(name.begin(), name.end(), is_token_char); }

bool is_host_field(std::string_view name) {
  return std::any_of(std::begin(host_fields), std::end(host_fields),
                     [name](std::string_view own) { return ascii::iequals(own, name); });
}

/// one_line returns `text` with control characters replaced by spaces and without surrounding spaces.
std::string one_line(std::string_view text) {
  std::string line = without_controls(text, ' ');
  line.erase(line.find_last_not_of(' ') + 1);
  line.erase(0, line.find_first_not_of(' '));
  return line;
}

std::optional<std::int64_t> decimal(std::string_view text) {
  return text.starts_with('-') ? std::nullopt : parse_number<std::int64_t>(text);
}

/// declare sets the head's length from a Content-Length value. Returns true if the field is to be kept.
bool declare(Head &head, std::string_view value) {
  if (head.length) return false;
  head.length = decimal(value);
  return head.length.has_value();
}

void add_line(std::string &text, std::string_view name, std::string_view value) {
  text.append(name).append(": ").append(value).append("\r\n");
}

/// date_text returns what http_date does, and keeps it: a thread renders many heads in a second.
std::string_view date_text(std::time_t time) {
  struct Date {
    std::time_t time = 0;
    std::string text = http_date(time);
  };
  thread_local Date last;
  if (time != last.time) last = Date{time};
  return last.text;
}

}  // namespace

std::string_view reason_phrase(int status) {
  for (const auto &[number, text] : reasons)
    if (number == status) return text;
  return "Unknown";
}

bool has_body(int status) { return status >= 200 && status != 204 && status != 304; }

bool has_field(const Head &head, std::string_view name) {
  return std::any_of(head.fields.begin(), head.fields.end(),
                     [name](const Field &field) { return ascii::iequals(field.name, name); });
}

Head freeze_head(int status, std::string_view reason, const pblock &response) {
  Head head;
  const bool valid = status >= 200 && status <= 599;
  head.status = valid ? status : 500;
  if (valid) head.reason = one_line(reason);
  head.fields.reserve(response.count);
  for (const host_param *entry = response.first; entry != nullptr; entry = entry->next) {
    if (!is_token(entry->name) || is_host_field(entry->name)) continue;
    std::string value = one_line(entry->value);
    if (ascii::iequals(entry->name, "content-length") && !declare(head, value)) continue;
    head.fields.push_back({entry->name, std::move(value)});
  }
  return head;
}

Head text_head(int status, std::int64_t length) {
  Head head;
  head.status = status;
  head.length = length;
  if (length > 0) head.fields.push_back({"Content-Type", "text/plain"});
  head.fields.push_back({"Content-Length", std::to_string(length)});
  return head;
}

std::string render_head(const Head &head, const HeadFrame &frame) {
  std::string text;
  text.reserve(usual_head);
  text.append("HTTP/1.1 ").append(std::to_string(head.status)).append(" ");
  text.append(head.reason.empty() ? reason_phrase(head.status) : std::string_view(head.reason)).append("\r\n");
  add_line(text, "Date", date_text(frame.now));
  add_line(text, "Server", frame.server);
  if (!frame.request_id.empty()) add_line(text, "X-Request-Id", frame.request_id);
  for (const Field &field : head.fields) add_line(text, field.name, field.value);
  if (head.status == 503 && !has_field(head, "retry-after")) add_line(text, "Retry-After", retry_after);
  if (!frame.connection.empty()) add_line(text, "Connection", frame.connection);
  text.append("\r\n");
  return text;
}

}  // namespace rdm::hosts
