// SPDX-License-Identifier: MIT
/// The server's error log, and its access log in the combined format.
#ifndef HOSTS_RDMD_LOG_H
#define HOSTS_RDMD_LOG_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
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
  late_head,     // the request head did not arrive in time: 408
  late_body,     // the request body did not arrive in time: 408
  large_head,    // the request head exceeded a limit: 414 or 431
  unread,        // the client acknowledged nothing of its answer in time: closed
  too_slow,      // the client took its answer more slowly than the minimum rate: closed
  broken,        // the connection broke, or a file of the answer became shorter: closed
  not_served,    // the connection ended before its request reached the plug-in: 503 in the access log
  turned_away,   // a client beyond the connection limit: 503
  disconnected,  // a client far beyond the limit: closed without an answer
  count
};

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
  /// report writes a report of the plug-in: "FUNCTION: text (client ADDRESS)".
  void report(const hosts::Report &report);
  /// trouble logs "REASON (client ADDRESS)" as a warning. At most LineBudget::lines_per_minute lines of each kind are
  /// written in a minute; the next line written says how many were suppressed.
  void trouble(Trouble kind, std::string_view client, LineBudget::Clock::time_point now = LineBudget::Clock::now());
  /// dropped warns that the log `name` has dropped lines. Returns false if this log could not write the warning.
  bool dropped(std::string_view name, std::size_t lines);
  bool to_file() const { return file_ != nullptr; }
  void reopen();

 private:
  std::string line_prefix(int level);
  bool write(int level, std::string_view text, std::string_view client = {});

  std::mutex mutex_;  // guards formatter_ and budgets_
  std::unique_ptr<spdlog::formatter> formatter_;
  std::array<LineBudget, static_cast<std::size_t>(Trouble::count)> budgets_;
  std::unique_ptr<hosts::LogFile> file_;
};

/// AccessEntry is a request that was answered or cut off.
struct AccessEntry {
  std::string client;
  std::time_t time = 0;  // when the head was complete
  std::string line;      // the request line as sent
  int status = 0;
  std::int64_t bytes = 0;  // bytes of the body that were sent
  std::string referer;
  std::string agent;
};

/// format_access returns the entry as a line in the combined format, newline included: client, two fields "-", local
/// time, request line, status, bytes ("-" if 0), referer and user agent ("-" if empty).
std::string format_access(const AccessEntry &entry);

/// AccessLog writes entries to a file, to standard output if the path is "-", or nowhere if it is empty.
class AccessLog {
 public:
  /// `dropped` reports lines that the file could not take. Throws std::system_error if the file cannot be opened.
  explicit AccessLog(const std::string &path, hosts::LogFile::Notice dropped = {});
  void write(const AccessEntry &entry);
  /// reopen returns false with errno set if the file cannot be opened again; the old one stays in use.
  bool reopen() { return !file_ || file_->reopen(); }

 private:
  bool to_stream_;
  std::unique_ptr<hosts::LogFile> file_;
};

}  // namespace rdm::rdmd

#endif
