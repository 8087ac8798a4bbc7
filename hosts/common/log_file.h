// SPDX-License-Identifier: MIT
/// A log: whole lines appended to a file, a pipe, a socket or a terminal, without ever waiting for the reader of one.
///
/// A line goes to the system at once and in one write. Where nobody reads, lines wait in a queue of bounded size, which
/// a thread writes out when it can be; what does not fit is dropped. So is a line that cannot be written, as on a full
/// disk. Dropped lines are counted, and a notice tells the count: at the first of them, then at most once a minute
/// while lines are dropped, and when the log can be written again or is closed. Each notice counts the lines since the
/// one before. Lines keep their order and are never torn: of a line that was begun the rest is written before any
/// other.
#ifndef HOSTS_COMMON_LOG_FILE_H
#define HOSTS_COMMON_LOG_FILE_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "qxapi/guard.h"

namespace rdm::hosts {

/// open_log opens a file for appending and creates it, with mode 0644 less the process's mask, where it is missing. A
/// named pipe is opened whether or not it has a reader. Writing to the descriptor never blocks. -1 with errno set when
/// it fails.
host_fd open_log(const char *path);

/// open_new_log makes a file that is not there, as open_log does. -1 with errno set when it fails: EEXIST where there
/// is one, even a symbolic link to a missing file.
host_fd open_new_log(const char *path);

/// count_dropped returns what a notice says: "12 lines dropped".
std::string count_dropped(std::size_t lines);

/// is_pipe returns true when `path` names a pipe.
bool is_pipe(const char *path);

/// open_stream returns a descriptor of its own for what an open stream, such as standard error, writes to. Writing to
/// it does not block as far as the system lets each writer choose; the stream itself, which other programs may use,
/// stays as it is.
HostFileGuard open_stream(host_fd stream);

/// LogFile is used from any thread.
class LogFile {
 public:
  using Clock = std::chrono::steady_clock;
  /// Notice reports that so many lines were dropped. False when it could not report it: the lines are counted again.
  using Notice = std::function<bool(std::size_t lines)>;
  /// NoticeTo is the log that a notice writes to. The same log is told only when it can be written again.
  enum class NoticeTo { another, itself };

  /// The bytes that wait at most, and for how long close waits for them to be taken.
  static constexpr std::size_t queue_limit = 1 << 20;
  static constexpr std::chrono::milliseconds close_patience{1000};
  /// How often at most a notice is given while lines are dropped.
  static constexpr std::chrono::minutes notice_interval{1};

  /// Opens `path` with open_log; throws std::system_error.
  explicit LogFile(std::string path, Notice dropped = {}, NoticeTo to = NoticeTo::another);
  /// A log over a descriptor of open_stream. It is never reopened.
  explicit LogFile(HostFileGuard stream, Notice dropped = {}, NoticeTo to = NoticeTo::another);
  /// A log over a descriptor that somebody else closes, after this log, and that no other program writes to: it is made
  /// one that does not block. It is reopened under `path`, and its notices write to another log.
  LogFile(host_fd borrowed, std::string path, Notice dropped);
  LogFile(const LogFile &) = delete;
  LogFile &operator=(const LogFile &) = delete;
  /// Closes the log.
  ~LogFile();

  /// path is the name that the log is reopened under, empty for none.
  const std::string &path() const { return path_; }

  /// write appends `text`, one line or several, each with its newline. True when it is written or queued.
  bool write(std::string_view text, Clock::time_point now = Clock::now());

  /// reopen goes on in the file that now has the log's name; a file made for it has owner and mode of the old one.
  /// False, with errno set, when there is none: the log goes on in the old file. A log that is closed stays so.
  bool reopen();

  /// close writes out what waits, for at most close_patience, and drops the rest. Nothing is written afterwards.
  void close();

 private:
  enum class Way { direct, socket, polled };
  enum class Put { all, blocked, failed };

  static Way way_of(host_fd fd);
  ssize_t write_some(std::string_view text) const;

  bool write_through(std::string_view text);
  bool enqueue(std::string_view text);
  void wait(std::string_view text);
  bool flush();
  Put put(std::string_view &text);
  void drop_waiting(std::size_t kept);
  void start_flushing();
  void flush_when_writable();
  void report_while_dropping(std::unique_lock<std::mutex> &lock, Clock::time_point now);
  bool report(std::unique_lock<std::mutex> &lock);

  const std::string path_;  // empty: never reopened
  const HostFileGuard own_;
  const host_fd fd_;  // the number stays the same when the log is reopened
  const Way way_;     // how a write does not block
  const Notice notice_;
  const NoticeTo notice_to_ = NoticeTo::another;

  std::mutex mutex_;  // of all below
  std::deque<std::string> waiting_;
  std::size_t waiting_bytes_ = 0;
  bool torn_ = false;     // the first that waits is the rest of a line
  bool blocked_ = false;  // the last write would have had to wait
  bool closed_ = false;
  std::size_t dropped_ = 0;        // and not yet reported
  Clock::time_point next_notice_;  // while lines are dropped, not before
  bool flushing_ = false;          // the thread runs
  std::thread flusher_;
};

}  // namespace rdm::hosts

#endif
