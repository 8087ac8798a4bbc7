// SPDX-License-Identifier: MIT
/// A log that appends whole lines to a file, a pipe, a socket or a terminal without blocking.
///
/// Each line is written by one write() call. If that would block, lines are queued, up to queue_limit bytes, and a
/// thread writes them when the descriptor becomes writable. A line that does not fit into the queue, or that cannot be
/// written (for example on a full disk), is dropped. A notice reports the number of lines dropped since the previous
/// notice: at the first dropped line, then at most once a minute while lines are dropped, and when the log becomes
/// writable again or is closed. Lines keep their order. When only part of a line could be written, its rest is written
/// before any other line.
#ifndef HOSTS_COMMON_LOG_FILE_H
#define HOSTS_COMMON_LOG_FILE_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "qxapi/guard.h"

namespace rdm::hosts {

/// open_log opens a file for appending, and creates it with mode 0644 less the umask if it does not exist. A named pipe
/// is opened even if it has no reader. Writes to the descriptor do not block. Returns -1 with errno set on failure.
host_fd open_log(const char *path);

/// open_new_log is open_log for a file that does not exist. Returns -1 with errno EEXIST if the path exists, even as a
/// dangling symbolic link, or with the errno of open().
host_fd open_new_log(const char *path);

/// describe_dropped returns the text of a notice: "12 lines dropped".
std::string describe_dropped(std::size_t lines);

/// dropped_lines returns how many lines all logs of this process have dropped.
std::uint64_t dropped_lines();

/// is_pipe returns true if `path` names a pipe.
bool is_pipe(const char *path);

/// open_stream returns a descriptor of its own for the file, pipe or terminal of an open stream, such as standard
/// error. If the system allows it, writes to the returned descriptor do not block; the flags of the stream itself,
/// which other programs may share, are unchanged.
HostFileGuard open_stream(host_fd stream);

/// All members of LogFile may be called from any thread.
class LogFile {
 public:
  using Clock = std::chrono::steady_clock;
  /// Notice reports that `lines` lines were dropped. Returns false if it could not report them; they are then counted
  /// again.
  using Notice = std::function<bool(std::size_t lines)>;
  /// NoticeTo is the log that a notice writes to. A notice to the log itself is given only once that log is writable
  /// again.
  enum class NoticeTo { another, itself };

  /// The limit of the queue in bytes, and how long close waits until the queue is written.
  static constexpr std::size_t queue_limit = 1 << 20;
  static constexpr std::chrono::milliseconds close_timeout{1000};
  /// The minimum time between two notices while lines are dropped.
  static constexpr std::chrono::minutes notice_interval{1};

  /// Opens `path` with open_log. Throws std::system_error.
  explicit LogFile(std::string path, Notice dropped = {}, NoticeTo to = NoticeTo::another);
  /// A log over a descriptor of open_stream. It cannot be reopened.
  explicit LogFile(HostFileGuard stream, Notice dropped = {}, NoticeTo to = NoticeTo::another);
  /// A log over a descriptor that the caller closes after this log, and that no other program writes to: O_NONBLOCK is
  /// set on it. It is reopened under `path`, and its notices write to another log.
  LogFile(host_fd borrowed, std::string path, Notice dropped);
  LogFile(const LogFile &) = delete;
  LogFile &operator=(const LogFile &) = delete;
  /// Closes the log.
  ~LogFile();

  /// path returns the name under which the log is reopened, or an empty string if it is never reopened.
  const std::string &path() const { return path_; }

  /// write appends `text`: one or more lines, each with its newline. Returns true if it was written or queued.
  bool write(std::string_view text, Clock::time_point now = Clock::now());

  /// reopen opens the log's name again and continues in that file; a newly created file gets owner and mode of the old
  /// one. Returns false with errno set on failure; the log then continues in the old file. A closed log stays closed.
  bool reopen();

  /// close writes the queued lines for at most close_timeout and drops the rest. Later lines are not written.
  void close();

 private:
  enum class WriteMode { direct, socket, polled };
  enum class WriteResult { all, blocked, failed };

  static WriteMode write_mode_of(host_fd fd);
  ssize_t write_some(std::string_view text) const;

  bool write_through(std::string_view text);
  bool enqueue(std::string_view text);
  void push(std::string_view text);
  bool flush();
  WriteResult put(std::string_view &text);
  void count_dropped(std::string_view text);
  void drop_queued(std::size_t kept);
  void start_flushing();
  void flush_when_writable();
  void report_while_dropping(std::unique_lock<std::mutex> &lock, Clock::time_point now);
  bool report(std::unique_lock<std::mutex> &lock);

  const std::string path_;  // empty: never reopened
  const HostFileGuard own_;
  const host_fd fd_;      // the number stays the same when the log is reopened
  const WriteMode mode_;  // how a write is kept from blocking
  const Notice notice_;
  const NoticeTo notice_to_ = NoticeTo::another;

  std::mutex mutex_;  // guards all members below
  std::deque<std::string> queue_;
  std::size_t queued_bytes_ = 0;
  bool first_is_partial_ = false;  // the first queued text is the rest of a partly written line
  bool blocked_ = false;           // the last write returned EAGAIN
  bool closed_ = false;
  std::size_t dropped_ = 0;        // lines dropped since the last notice
  Clock::time_point next_notice_;  // the earliest time of the next notice while lines are dropped
  bool flushing_ = false;          // flusher_ is running
  std::thread flusher_;
};

}  // namespace rdm::hosts

#endif
