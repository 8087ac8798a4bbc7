// SPDX-License-Identifier: MIT
#include "hosts/rdmd/access_log.h"

#include <cmath>
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
using Json = nlohmann::ordered_json;

std::string local_time(Clock::time_point time, const char *format) {
  const std::time_t seconds = Clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
  struct tm fields;
  char text[64] = "";
  if (::localtime_r(&seconds, &fields) != nullptr) host_format_time(text, sizeof text, format, &fields);
  return text;
}

std::string quoted(const std::string &text) {
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

/// milliseconds returns a time with three decimals.
double milliseconds(AccessEntry::Time time) {
  return std::round(std::chrono::duration<double, std::micro>(time).count()) / 1000;
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

void add_text(Json &object, const char *name, std::string_view text) {
  if (!text.empty()) object[name] = text;
}

void add_time(Json &object, const char *name, const std::optional<AccessEntry::Time> &time) {
  if (time) object[name] = milliseconds(*time);
}

/// add_request_line adds the three parts of a request line, or a line of another form as one.
void add_request_line(Json &object, std::string_view line) {
  constexpr auto none = std::string_view::npos;
  const std::size_t first = line.find(' '), last = line.rfind(' ');
  const bool has_two = first != none && line.find(' ', first + 1) == last;
  if (!has_two || first == 0 || last <= first + 1 || last + 1 == line.size()) return add_text(object, "line", line);
  object["method"] = line.substr(0, first);
  object["target"] = line.substr(first + 1, last - first - 1);
  object["protocol"] = line.substr(last + 1);
}

}  // namespace

std::string format_combined(const AccessEntry &entry) {
  return entry.client + " - - [" + local_time(entry.time, "%d/%b/%Y:%H:%M:%S %z") + "] " + quoted(entry.line) + ' ' +
         std::to_string(entry.status) + ' ' + (entry.bytes > 0 ? std::to_string(entry.bytes) : "-") + ' ' +
         quoted(entry.referer) + ' ' + quoted(entry.agent) + '\n';
}

std::string format_json(const AccessEntry &entry) {
  Json object = {{"time", iso_time(entry.time)}, {"client", entry.client}};
  add_request_line(object, entry.line);
  object["status"] = entry.status;
  object["bytes"] = entry.bytes;
  add_text(object, "referer", entry.referer);
  add_text(object, "agent", entry.agent);
  add_text(object, "request_id", entry.id);
  if (entry.connection > 0) object["connection"] = entry.connection;
  add_text(object, "type", entry.labels.type);
  add_text(object, "catalog", entry.labels.catalog);
  if (entry.labels.hits) object["hits"] = *entry.labels.hits;
  if (entry.worker > 0) object["worker"] = entry.worker;
  add_time(object, "queue_ms", entry.queued);
  add_time(object, "service_ms", entry.served);
  add_time(object, "sending_ms", entry.sent);
  add_text(object, "closed_by", name_of(entry.closed_by));
  return object.dump(-1, ' ', true, Json::error_handler_t::replace) + '\n';
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
