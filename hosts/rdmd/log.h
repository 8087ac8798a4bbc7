// SPDX-License-Identifier: MIT
/// The server's error log.
#ifndef HOSTS_RDMD_LOG_H
#define HOSTS_RDMD_LOG_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/common/host_table.h"
#include "hosts/common/log_file.h"

namespace spdlog {
class formatter;
}

namespace rdm::rdmd {

/// Trouble lists events that clients can cause at will. Each is logged at a limited rate.
enum class Trouble {
  late_tls,      // the TLS handshake was not complete in time: closed
  bad_tls,       // the TLS handshake failed: closed
  late_head,     // the request head did not arrive in time: 408
  late_body,     // the request body did not arrive in time: 408
  large_head,    // the request head exceeded a limit: 414 or 431
  unread,        // the client acknowledged nothing of its answer in time: closed
  too_slow,      // the client took its answer more slowly than the minimum rate: closed
  broken,        // the connection broke, or a file of the answer became shorter: closed
  not_served,    // the connection ended before its request reached the plug-in: 503 in the access log
  queue_full,    // the queue of requests was full: 503
  overdue,       // the request waited longer than --queue-time: 503
  turned_away,   // a client beyond the connection limit: 503
  address_full,  // a client beyond the limit on connections of an address: 503
  address_rate,  // a client beyond the limit on new connections of an address: 503
  disconnected,  // a client far beyond a limit: closed without an answer
  spill_full,    // the answer would exceed the limit on bytes in temporary files: 503
  not_a_proxy,   // a connection that is not from a trusted proxy, with --proxy-protocol: closed
  proxy_header,  // the header of a proxy was malformed or did not arrive in time: closed
  made_way,      // a connection that waited for a request, or for the rest of a head: ended for a new client
  count
};

/// trouble_kinds is the number of kinds; trouble_name returns the name of one for metrics, such as "late_head".
inline constexpr auto trouble_kinds = static_cast<std::size_t>(Trouble::count);
std::string_view trouble_name(Trouble kind);

/// LineBudget limits log lines of one kind to lines_per_minute, and counts the suppressed ones.
class LineBudget {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t lines_per_minute = 10;

  /// take returns how many lines were suppressed since the last permitted one, or std::nullopt if this line is to be
  /// suppressed.
  std::optional<std::size_t> take(Clock::time_point now);
  std::size_t suppressed() const { return suppressed_; }

 private:
  Clock::time_point minute_{};
  std::size_t passed_ = lines_per_minute;
  std::size_t suppressed_ = 0;
};

/// describe_client returns how log lines name the origin of a request: "ADDRESS, request ID", or "ADDRESS" without an
/// identifier.
std::string describe_client(std::string_view address, std::string_view request_id);

/// ErrorLog writes lines "[time] [level] rdmd: text" to a file or, without a path, to standard error. A line has at
/// most 8191 bytes: a longer text is cut, but the client's address at its end is kept. A line that cannot be written is
/// dropped and reported as described for LogFile. Members may be called from any thread and throw nothing.
class ErrorLog {
 public:
  /// Throws std::system_error if the file cannot be opened.
  explicit ErrorLog(const std::string &path);
  ErrorLog(const ErrorLog &) = delete;
  ErrorLog &operator=(const ErrorLog &) = delete;
  /// Logs the number of suppressed lines of each kind.
  ~ErrorLog();

  void info(std::string_view text);
  void warn(std::string_view text);
  void error(std::string_view text);
  enum class Severity { error, warning };
  /// failure writes a line "WHAT: the text of the exception", or `what` alone if memory is short.
  void failure(std::string_view what, const std::exception &error, Severity severity = Severity::error);
  /// report writes a report of the plug-in: "FUNCTION: text (client ADDRESS, request ID)".
  void report(const hosts::Report &report);
  /// trouble counts an event and logs "REASON (client CLIENT)" as a warning, where `client` is what describe_client
  /// returns. At most LineBudget::lines_per_minute lines of each kind are written in a minute; the next line written
  /// says how many were suppressed.
  void trouble(Trouble kind, std::string_view client, LineBudget::Clock::time_point now = LineBudget::Clock::now());
  /// troubles returns how many events of this kind there have been.
  std::uint64_t troubles(Trouble kind) const {
    return counts_[static_cast<std::size_t>(kind)].load(std::memory_order_relaxed);
  }
  /// dropped warns that the log `name` has dropped lines. Returns false if this log could not write the warning.
  bool dropped(std::string_view name, std::size_t lines);
  bool to_file() const { return file_ != nullptr; }
  void reopen();

 private:
  std::string line_prefix(int level);
  bool write(int level, std::string_view text, std::string_view client = {});

  std::mutex mutex_;  // guards formatter_ and budgets_
  std::unique_ptr<spdlog::formatter> formatter_;
  std::array<LineBudget, trouble_kinds> budgets_;
  std::array<std::atomic<std::uint64_t>, trouble_kinds> counts_{};
  std::unique_ptr<hosts::LogFile> file_;
};

}  // namespace rdm::rdmd

#endif
