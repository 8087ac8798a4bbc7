// SPDX-License-Identifier: MIT
/// The server's access log: a line for each request, in the combined format or as JSON.
#ifndef HOSTS_RDMD_ACCESS_LOG_H
#define HOSTS_RDMD_ACCESS_LOG_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/common/log_file.h"
#include "hosts/common/request_labels.h"

namespace rdm::rdmd {

/// ClosedBy says why a connection ended with a request.
enum class ClosedBy {
  not_closed,
  client,   // it asked for that, broke the connection or disconnected
  server,   // the server could not continue, or is stopping
  timeout,  // the client sent or read too slowly
  limit     // the client exceeded a limit
};

/// AccessEntry is a request that was answered or cut off. Times are of the steady clock. The texts are the caller's.
struct AccessEntry {
  using Time = std::chrono::nanoseconds;

  std::string_view client;
  std::chrono::system_clock::time_point time;  // when the head was complete
  std::string_view line;                       // the request line as sent
  int status = 0;
  std::int64_t bytes = 0;  // bytes of the body that were sent
  std::string_view referer;
  std::string_view agent;
  std::string_view id;           // of the request
  std::uint64_t connection = 0;  // its number, from 1
  hosts::RequestLabels labels;
  int worker = 0;              // its number, from 1; 0: none
  std::optional<Time> queued;  // from the whole request to the call of the plug-in
  std::optional<Time> served;  // in the plug-in
  std::optional<Time> sent;    // from the answer until the kernel had all of it, or the end
  bool for_service = false;    // the path is the service's
  bool complete = false;       // the whole answer was sent
  ClosedBy closed_by = ClosedBy::not_closed;
};

enum class AccessFormat { combined, json };

/// format_combined returns the entry as a line in the combined format, newline included: client, two fields "-", local
/// time, request line, status, bytes ("-" if 0), referer and user agent ("-" if empty).
std::string format_combined(const AccessEntry &entry);

/// format_json returns the entry as a JSON object on a line, newline included. Members without a value are left out.
/// The line is ASCII: other characters are escaped, and bytes that are no UTF-8 are replaced by U+FFFD.
std::string format_json(const AccessEntry &entry);

/// AccessLog writes entries to a file, to standard output if the path is "-", or nowhere if it is empty.
class AccessLog {
 public:
  /// `dropped` reports lines that the file could not take. Throws std::system_error if the file cannot be opened.
  explicit AccessLog(const std::string &path, hosts::LogFile::Notice dropped = {},
                     AccessFormat format = AccessFormat::combined);
  void write(const AccessEntry &entry);
  /// reopen returns false with errno set if the file cannot be opened again; the old one stays in use.
  bool reopen() { return !file_ || file_->reopen(); }

 private:
  AccessFormat format_;
  bool to_stream_;
  std::unique_ptr<hosts::LogFile> file_;
};

}  // namespace rdm::rdmd

#endif
