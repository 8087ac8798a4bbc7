// SPDX-License-Identifier: MIT
#include "hosts/rdmd/access_log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>
#include <qxapi/qxapi.h>

#include "hosts/common/log_text.h"
#include "hosts/rdmd/standard_stream.h"

namespace rdm::rdmd {
namespace {

using Clock = std::chrono::system_clock;

std::string local_time(Clock::time_point time, const char *format) {
  const std::time_t seconds = Clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
  struct tm fields;
  char text[64] = "";
  if (::localtime_r(&seconds, &fields) != nullptr) host_format_time(text, sizeof text, format, &fields);
  return text;
}

std::string quoted(std::string_view text) {
  return '"' + (text.empty() ? "-" : hosts::log_text(text, Escaping::quotes)) + '"';
}

/// iso_time returns local time in the form of ISO 8601, such as "2026-11-22T13:15:35.042+02:00".
std::string iso_time(Clock::time_point time) {
  const auto within = time - std::chrono::floor<std::chrono::seconds>(time);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03d",
                static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(within).count()));
  std::string offset = local_time(time, "%z");
  if (offset.size() == 5) offset.insert(3, ":");
  return local_time(time, "%Y-%m-%dT%H:%M:%S") + fraction + offset;
}

std::string_view name_of(ClosedBy reason) {
  switch (reason) {
    case ClosedBy::not_closed:
      return "";
    case ClosedBy::client:
      return "client";
    case ClosedBy::server:
      return "server";
    case ClosedBy::timeout:
      return "timeout";
    case ClosedBy::limit:
      return "limit";
  }
  return "";
}

/// is_plain returns true if a text stands in JSON as it is.
bool is_plain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < '\x7f' && c != '"' && c != '\\'; });
}

/// Line is a JSON object on a line. The library makes only strings that need it: an object of its own would take nearly
/// three times as long.
class Line {
 public:
  /// text adds a string, and value anything else. An empty text is left out.
  void text(std::string_view name, std::string_view text) {
    if (text.empty()) return;
    if (is_plain(text)) return value(name, '"' + std::string(text) + '"');
    value(name, nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace));
  }
  void value(std::string_view name, std::string_view value) {
    line_.append(line_.empty() ? "{\"" : ",\"").append(name).append("\":").append(value);
  }
  /// time adds a time in milliseconds with three decimals.
  void time(std::string_view name, const std::optional<AccessEntry::Time> &time) {
    if (!time) return;
    std::array<char, 32> digits;
    const double number = std::chrono::duration<double, std::milli>(*time).count();
    const auto end = std::to_chars(digits.begin(), digits.end(), number, std::chars_format::fixed, 3).ptr;
    value(name, {digits.data(), static_cast<std::size_t>(end - digits.data())});
  }
  std::string take() { return std::move(line_.append("}\n")); }

 private:
  std::string line_;
};

/// add_request_line adds the three parts of a request line, or a line of another form as one.
void add_request_line(Line &object, std::string_view line) {
  constexpr auto none = std::string_view::npos;
  const std::size_t first = line.find(' '), last = line.rfind(' ');
  const bool has_two = first != none && line.find(' ', first + 1) == last;
  if (!has_two || first == 0 || last <= first + 1 || last + 1 == line.size()) return object.text("line", line);
  object.text("method", line.substr(0, first));
  object.text("target", line.substr(first + 1, last - first - 1));
  object.text("protocol", line.substr(last + 1));
}

}  // namespace

std::string format_combined(const AccessEntry &entry) {
  return std::string(entry.client) + " - - [" + local_time(entry.time, "%d/%b/%Y:%H:%M:%S %z") + "] " +
         quoted(entry.line) + ' ' + std::to_string(entry.status) + ' ' +
         (entry.bytes > 0 ? std::to_string(entry.bytes) : "-") + ' ' + quoted(entry.referer) + ' ' +
         quoted(entry.agent) + '\n';
}

std::string format_json(const AccessEntry &entry) {
  Line line;
  line.text("time", iso_time(entry.time));
  line.text("client", entry.client);
  add_request_line(line, entry.line);
  line.value("status", std::to_string(entry.status));
  line.value("bytes", std::to_string(entry.bytes));
  line.text("referer", entry.referer);
  line.text("agent", entry.agent);
  line.text("request_id", entry.id);
  if (entry.connection > 0) line.value("connection", std::to_string(entry.connection));
  line.text("type", entry.labels.type);
  line.text("catalog", entry.labels.catalog);
  if (entry.labels.hits) line.value("hits", std::to_string(*entry.labels.hits));
  if (entry.worker > 0) line.value("worker", std::to_string(entry.worker));
  line.time("queue_ms", entry.queued);
  line.time("service_ms", entry.served);
  line.time("sending_ms", entry.sent);
  line.text("closed_by", name_of(entry.closed_by));
  return line.take();
}

AccessLog::AccessLog(const std::string &path, hosts::LogFile::Notice dropped, AccessFormat format)
    : format_(format), to_stream_(path == "-") {
  if (!to_stream_ && !path.empty()) file_ = std::make_unique<hosts::LogFile>(path, std::move(dropped));
}

void AccessLog::write(const AccessEntry &entry) {
  if (!file_ && !to_stream_) return;
  const std::string line = format_ == AccessFormat::json ? format_json(entry) : format_combined(entry);
  if (file_)
    file_->write(line);
  else
    write_stream(stdout, line);
}

}  // namespace rdm::rdmd
