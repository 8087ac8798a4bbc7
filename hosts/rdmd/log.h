// SPDX-License-Identifier: MIT
/// The two logs of the server: the error log, and the access log in the combined format.
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

/// Trouble is what clients can cause at will and what the operator should know about.
enum class Trouble {
  late_head,     // a request head that did not arrive in time: 408
  late_body,     // a request body that did not arrive in time: 408
  unread,        // an answer that its client took nothing of in time: cut
  broken,        // an answer whose connection broke, or whose file became shorter: cut
  no_turn,       // a request whose client, or whose server, ended before the service came to it: 503 in the access log
  turned_away,   // a client beyond the connection limit: 503
  disconnected,  // a client far beyond the limit: closed without an answer
  count
};

/// LineBudget lets a number of lines of one kind pass in a minute, and counts those that it keeps back.
class LineBudget {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t lines_per_minute = 10;

  /// take returns how many lines were kept back since the last that passed, or nothing when this one is kept back.
  std::optional<std::size_t> take(Clock::time_point now);
  std::size_t kept_back() const { return kept_back_; }

 private:
  Clock::time_point minute_{};
  std::size_t passed_ = lines_per_minute;
  std::size_t kept_back_ = 0;
};

/// ErrorLog writes "[time] [level] rdmd: text" lines to a file or, without a path, to the stream of standard error.
/// A line has at most 8191 bytes: a longer text is cut, and what names its client stays. A line that cannot be written
/// is dropped, and reported as LogFile does. Members are called from any thread and throw nothing.
class ErrorLog {
 public:
  /// Throws std::system_error when the file cannot be opened.
  explicit ErrorLog(const std::string &path);
  ErrorLog(const ErrorLog &) = delete;
  ErrorLog &operator=(const ErrorLog &) = delete;
  /// Says which troubles were kept back since they were last mentioned.
  ~ErrorLog();

  void info(std::string_view text);
  void warn(std::string_view text);
  void error(std::string_view text);
  /// report writes a report of the plug-in: "FUNCTION: text (client ADDRESS)".
  void report(const hosts::Report &report);
  /// trouble warns of a client: "REASON (client ADDRESS)". Of each kind LineBudget::lines_per_minute lines are written
  /// in a minute; the next one that is written says how many were not.
  void trouble(Trouble kind, std::string_view client, LineBudget::Clock::time_point now = LineBudget::Clock::now());
  /// dropped warns of lines that a log, `name`, could not take. False when this log could not take the warning either.
  bool dropped(std::string_view name, std::size_t lines);
  bool to_file() const { return file_ != nullptr; }
  void reopen();

 private:
  std::string stamp(int level);
  bool write(int level, std::string_view text, std::string_view client = {});

  std::mutex mutex_;  // of the formatter and the budgets
  std::unique_ptr<spdlog::formatter> formatter_;
  std::array<LineBudget, static_cast<std::size_t>(Trouble::count)> budgets_;
  std::unique_ptr<hosts::LogFile> file_;
};

/// AccessEntry is one answered or broken-off request.
struct AccessEntry {
  std::string client;
  std::time_t time = 0;  // when its head had arrived
  std::string line;      // the request line as it was sent
  int status = 0;
  std::int64_t bytes = 0;  // of the answer's body that were sent
  std::string referer;
  std::string agent;
};

/// format_access returns the entry as a line in the combined format: client, two blanks fields "-", local time, request
/// line, status, bytes ("-" for none), referer and user agent ("-" when empty), with its newline.
std::string format_access(const AccessEntry &entry);

/// AccessLog writes entries to a file, to the stream of standard output for "-", or nowhere without a path.
class AccessLog {
 public:
  /// `dropped` reports lines that the file could not take. Throws std::system_error when it cannot be opened.
  explicit AccessLog(const std::string &path, hosts::LogFile::Notice dropped = {});
  void write(const AccessEntry &entry);
  /// reopen returns false, with errno set, when the file cannot be opened anew; the old one stays in use.
  bool reopen() { return !file_ || file_->reopen(); }

 private:
  bool to_stream_;
  std::unique_ptr<hosts::LogFile> file_;
};

}  // namespace rdm::rdmd

#endif
