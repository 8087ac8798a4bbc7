// SPDX-License-Identifier: MIT
#include "hosts/common/log_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <exception>
#include <system_error>
#include <utility>

#include "qxapi/uninterrupted.h"

namespace rdm::hosts {
namespace {

/// How often a waiting thread checks whether the log was reopened or closed.
constexpr std::chrono::milliseconds flush_interval{100};

std::atomic<std::uint64_t> dropped_by_all = 0;

host_fd open_file(const char *path, int flags) {
  return uninterrupted([&] { return ::open(path, flags | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644); });
}

/// reopen_file opens the log's name again. A newly created file gets owner and mode of the old one.
HostFileGuard reopen_file(const std::string &path, host_fd old) {
  struct stat status;
  const bool missing = ::stat(path.c_str(), &status) != 0;
  HostFileGuard opened(open_log(path.c_str()));
  if (opened && missing && ::fstat(old, &status) == 0 && S_ISREG(status.st_mode)) {
    // Only the superuser can change the owner; for other users both files have the same one already.
    [[maybe_unused]] const int given = ::fchown(opened.get(), status.st_uid, status.st_gid);
    ::fchmod(opened.get(), status.st_mode & 07777);
  }
  return opened;
}

bool same_file(host_fd one, host_fd other) {
  struct stat first, second;
  return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

bool is_writable(host_fd fd, std::chrono::milliseconds timeout) {
  pollfd waiting{fd, POLLOUT, 0};
  return ::poll(&waiting, 1, static_cast<int>(timeout.count())) > 0;
}

std::size_t lines_of(std::string_view text) {
  const auto ends = std::count(text.begin(), text.end(), '\n');
  return static_cast<std::size_t>(ends) + (text.ends_with('\n') ? 0 : 1);
}

}  // namespace

std::string describe_dropped(std::size_t lines) {
  return std::to_string(lines) + (lines == 1 ? " line dropped" : " lines dropped");
}

std::uint64_t dropped_lines() { return dropped_by_all.load(std::memory_order_relaxed); }

bool is_pipe(const char *path) {
  struct stat status;
  return ::stat(path, &status) == 0 && S_ISFIFO(status.st_mode);
}

host_fd open_log(const char *path) {
  // O_RDWR: a pipe then needs no other reader, and keeps its contents while it has none.
  return is_pipe(path) ? open_file(path, O_RDWR) : open_file(path, O_WRONLY | O_CREAT);
}

host_fd open_new_log(const char *path) { return open_file(path, O_WRONLY | O_CREAT | O_EXCL); }

HostFileGuard open_stream(host_fd stream) {
  struct stat status;
  if (::fstat(stream, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
    // A separate open file description: O_NONBLOCK on the stream's own would affect other programs that share it.
    HostFileGuard own(open_file(("/proc/self/fd/" + std::to_string(stream)).c_str(), O_WRONLY));
    if (own) return own;
  }
  return HostFileGuard(::fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

LogFile::LogFile(std::string path, Notice dropped, NoticeTo to)
    : path_(std::move(path)),
      own_(open_log(path_.c_str())),
      fd_(own_.get()),
      mode_(WriteMode::direct),
      notice_(std::move(dropped)),
      notice_to_(to) {
  if (!own_) throw std::system_error(errno, std::generic_category(), path_);
}

LogFile::LogFile(HostFileGuard stream, Notice dropped, NoticeTo to)
    : own_(std::move(stream)),
      fd_(own_.get()),
      mode_(write_mode_of(fd_)),
      notice_(std::move(dropped)),
      notice_to_(to) {}

LogFile::LogFile(host_fd borrowed, std::string path, Notice dropped)
    : path_(std::move(path)), fd_(borrowed), mode_(WriteMode::direct), notice_(std::move(dropped)) {
  ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
}

LogFile::~LogFile() { close(); }

bool LogFile::write(std::string_view text, Clock::time_point now) {
  std::unique_lock lock(mutex_);
  if (closed_) return false;
  bool taken = false;
  try {
    taken = flush() ? write_through(text) : enqueue(text);
  } catch (const std::bad_alloc &) {
    // The line is dropped.
  }
  if (!taken) count_dropped(text);
  if (blocked_) start_flushing();
  if (!taken) report_while_dropping(lock, now);
  if (taken && queue_.empty()) report(lock);
  return taken;
}

bool LogFile::reopen() {
  if (path_.empty()) return true;
  const HostFileGuard opened = reopen_file(path_, fd_);
  if (!opened) return false;
  const std::lock_guard lock(mutex_);
  if (closed_ || same_file(opened.get(), fd_)) return true;
  if (::dup3(opened.get(), fd_, O_CLOEXEC) == -1) return false;
  // The rest of a partly written line belongs to the old file.
  if (std::exchange(first_is_partial_, false)) {
    queued_bytes_ -= queue_.front().size();
    queue_.pop_front();
  }
  return true;
}

void LogFile::close() {
  std::unique_lock lock(mutex_);
  const auto end = Clock::now() + close_timeout;
  while (!closed_ && !flush() && blocked_ && Clock::now() < end) {
    lock.unlock();
    is_writable(fd_, flush_interval);
    lock.lock();
  }
  if (!closed_ && notice_to_ == NoticeTo::another) drop_queued(0);
  if (!closed_ && queue_.empty()) report(lock);
  closed_ = true;
  lock.unlock();
  if (flusher_.joinable()) flusher_.join();
}

/* ---- All that follows runs with the mutex held ---- */

/// write_mode_of returns how to write without blocking to a stream that other programs may share.
LogFile::WriteMode LogFile::write_mode_of(host_fd fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0 || S_ISREG(status.st_mode)) return WriteMode::direct;
  if (S_ISSOCK(status.st_mode)) return WriteMode::socket;
  return (::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? WriteMode::direct : WriteMode::polled;
}

/// write_some writes as much as it can without blocking. Returns the byte count, or -1 with errno set.
ssize_t LogFile::write_some(std::string_view text) const {
  if (mode_ == WriteMode::socket) return ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (mode_ == WriteMode::direct) return ::write(fd_, text.data(), text.size());
  // poll() reported space for PIPE_BUF bytes. The write can block only if another process fills the pipe in between.
  if (is_writable(fd_, std::chrono::milliseconds(0)))
    return ::write(fd_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
  errno = EAGAIN;
  return -1;
}

/// put writes as much of `text` as possible and removes that from its front.
LogFile::WriteResult LogFile::put(std::string_view &text) {
  blocked_ = false;
  while (!text.empty()) {
    const ssize_t count = write_some(text);
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      blocked_ = true;
      return WriteResult::blocked;
    } else if (count == 0 || errno != EINTR) {
      return WriteResult::failed;
    }
  }
  return WriteResult::all;
}

/// write_through writes a line when no other line is queued, and queues the part that could not be written.
bool LogFile::write_through(std::string_view text) {
  std::string_view rest = text;
  const WriteResult result = put(rest);
  if (result == WriteResult::failed && rest.size() == text.size()) return false;
  first_is_partial_ = !rest.empty() && rest.size() < text.size();
  if (!rest.empty()) push(rest);
  return true;
}

/// enqueue appends a line to the queue. After a dropped line it drops all further ones until the queue is empty, so
/// that the gap is in one place.
bool LogFile::enqueue(std::string_view text) {
  if (!blocked_ || dropped_ > 0 || queued_bytes_ + text.size() > queue_limit) return false;
  push(text);
  return true;
}

void LogFile::push(std::string_view text) {
  queue_.emplace_back(text);
  queued_bytes_ += text.size();
}

/// flush writes the queued lines. Returns true if the queue is empty afterwards.
bool LogFile::flush() {
  while (!queue_.empty()) {
    std::string &first = queue_.front();
    std::string_view rest = first;
    const WriteResult result = put(rest);
    queued_bytes_ -= first.size() - rest.size();
    first_is_partial_ = result != WriteResult::all && (first_is_partial_ || rest.size() < first.size());
    first.erase(0, first.size() - rest.size());
    if (result == WriteResult::all) queue_.pop_front();
    if (result == WriteResult::failed) drop_queued(first_is_partial_ ? 1 : 0);
    if (result != WriteResult::all) return false;
  }
  return true;
}

void LogFile::count_dropped(std::string_view text) {
  const std::size_t lines = lines_of(text);
  dropped_ += lines;
  dropped_by_all.fetch_add(lines, std::memory_order_relaxed);
}

/// drop_queued drops all queued lines but the first `kept`, such as the rest of a partly written line.
void LogFile::drop_queued(std::size_t kept) {
  while (queue_.size() > kept) {
    count_dropped(queue_.back());
    queued_bytes_ -= queue_.back().size();
    queue_.pop_back();
  }
}

/// start_flushing starts the thread that writes the queue. If no thread can be started, the next line tries again.
void LogFile::start_flushing() {
  if (flushing_) return;
  if (flusher_.joinable()) flusher_.join();
  try {
    flusher_ = std::thread([this] { flush_when_writable(); });
    flushing_ = true;
  } catch (const std::exception &) {
  }
}

void LogFile::flush_when_writable() {
  std::unique_lock lock(mutex_);
  do {
    while (!closed_ && !flush() && blocked_) {
      report_while_dropping(lock, Clock::now());
      lock.unlock();
      is_writable(fd_, flush_interval);
      lock.lock();
    }
  } while (!closed_ && queue_.empty() && report(lock));
  if (!closed_) report_while_dropping(lock, Clock::now());
  flushing_ = false;
}

/// report_while_dropping gives a notice, if one is due, while the log cannot be written. A notice to this log itself
/// would only be dropped too.
void LogFile::report_while_dropping(std::unique_lock<std::mutex> &lock, Clock::time_point now) {
  if (dropped_ == 0 || notice_to_ == NoticeTo::itself || now < next_notice_) return;
  next_notice_ = now + notice_interval;
  report(lock);
}

/// report gives a notice with the mutex unlocked. Returns false if no lines were dropped, or if the notice failed.
bool LogFile::report(std::unique_lock<std::mutex> &lock) {
  const std::size_t lines = std::exchange(dropped_, 0);
  if (lines == 0 || !notice_) return false;
  lock.unlock();
  bool reported = false;
  try {
    reported = notice_(lines);
  } catch (const std::exception &) {
  }
  lock.lock();
  if (!reported) dropped_ += lines;
  return reported;
}

}  // namespace rdm::hosts
