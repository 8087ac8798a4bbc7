/// The two logs of the server: the error log, and the access log in the combined format.
#ifndef HOSTS_RDMD_LOG_H
#define HOSTS_RDMD_LOG_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "hosts/common/host_table.h"
#include "qxapi/guard.h"

namespace spdlog {
class logger;
}

namespace rdmd {

/// LogFile appends whole lines to a file, each by one write, from any thread.
class LogFile {
 public:
  /// Opens `path` for appending and creates it where missing; throws std::system_error.
  explicit LogFile(std::string path);
  /// A log that writes to a descriptor which stays its caller's, and which is never reopened.
  explicit LogFile(host_fd borrowed) : fd_(borrowed) {}
  LogFile(const LogFile &) = delete;
  LogFile &operator=(const LogFile &) = delete;
  ~LogFile();

  void write(std::string_view text);
  /// reopen goes on in a file newly opened under the same name; when that fails, in the old one. False then.
  bool reopen();

 private:
  std::string path_;  // empty: borrowed
  host_fd fd_;
};

/// ErrorLog writes "[time] [level] rdmd: text" lines to a file or, without a path, to standard error.
class ErrorLog {
 public:
  explicit ErrorLog(const std::string &path);
  ~ErrorLog();

  void info(std::string_view text);
  void warn(std::string_view text);
  void error(std::string_view text);
  /// report writes a report of the plug-in: "FUNCTION: text (client ADDRESS)".
  void report(const hosts::Report &report);
  bool to_file() const { return to_file_; }
  void reopen();

 private:
  bool to_file_;
  std::shared_ptr<LogFile> file_;
  std::shared_ptr<spdlog::logger> logger_;
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

/// AccessLog writes entries to a file, to standard output for "-", or nowhere without a path.
class AccessLog {
 public:
  explicit AccessLog(const std::string &path);
  void write(const AccessEntry &entry);
  /// reopen returns false when the file cannot be opened anew; the old one stays in use.
  bool reopen() { return !file_ || file_->reopen(); }

 private:
  std::unique_ptr<LogFile> file_;
};

}  // namespace rdmd

#endif
