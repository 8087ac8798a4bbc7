// SPDX-License-Identifier: MIT
#include "hosts/common/host_table.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <qxapi/slice.h>

#include "hosts/common/close_aside.h"
#include "hosts/common/exchange.h"
#include "hosts/common/log_file.h"
#include "hosts/common/log_text.h"
#include "qxapi/records.h"

namespace rdm::hosts {
namespace {

struct Exit {
  void (*fn)(void *);
  void *argument;
};

Reporter report_to;
std::mutex exits_mutex;
std::vector<Exit> exits;

qxapi_host base_table;

/// The plug-in's logs by descriptor. Do not hold the mutex while using a log: a log may call the reporter.
using Logs = std::map<host_fd, std::shared_ptr<LogFile>>;
std::mutex logs_mutex;
Logs logs;

thread_local long resource_failure_count = 0;
thread_local int resource_failure_reason = 0;

/// count_failure returns `result`, and counts a resource failure with this errno unless `succeeded`.
template <typename Result>
Result count_failure(Result result, bool succeeded, int code = errno) {
  if (succeeded) return result;
  ++resource_failure_count;
  resource_failure_reason = code;
  return result;
}

/// guarded runs `body`. If it throws, guarded returns `failure` with errno ENOMEM, because no exception may pass
/// through the plug-in's frames.
template <typename Body, typename Result>
Result guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception &) {
    errno = ENOMEM;
    return failure;
  }
}

void *allocate(std::size_t n) {
  void *block = base_table.alloc(n);
  return count_failure(block, block != nullptr, ENOMEM);
}

void *reallocate(void *p, std::size_t n) {
  void *block = base_table.realloc(p, n);
  return count_failure(block, block != nullptr, ENOMEM);
}

char *duplicate(const char *text) {
  char *copy = base_table.strdup(text);
  return count_failure(copy, copy != nullptr, ENOMEM);
}

host_fd open_write(const char *path) {
  const host_fd fd = base_table.open_write(path);
  return count_failure(fd, fd != -1);
}

/// report_dropped reports that one of the plug-in's logs has dropped lines.
bool report_dropped(const std::string &path, std::size_t lines) {
  report_to(Report{1, "log", "", "write " + log_text(path, Escaping::non_ascii) + ": " + describe_dropped(lines)});
  return true;
}

void report_old_file(const std::string &path, int code) {
  report_to(Report{0, "log", "",
                   "reopen " + log_text(path, Escaping::non_ascii) + ": " + std::generic_category().message(code) +
                       "; still writing to the old file"});
}

std::shared_ptr<LogFile> log_of(host_fd fd) {
  const std::lock_guard lock(logs_mutex);
  const auto found = logs.find(fd);
  return found == logs.end() ? nullptr : found->second;
}

/// remove_log removes the log of a descriptor from the map and returns it, or null if there is none.
std::shared_ptr<LogFile> remove_log(host_fd fd) {
  const std::lock_guard lock(logs_mutex);
  const auto node = logs.extract(fd);
  return node.empty() ? nullptr : node.mapped();
}

/// close_logs writes the queued lines of all logs and removes the logs. The descriptors stay open; later lines are
/// written to them directly.
void close_logs() {
  Logs ending;
  const std::lock_guard lock(logs_mutex);
  ending.swap(logs);
}

void add_log(host_fd fd, const char *path) {
  auto log = std::make_shared<LogFile>(
      fd, path, [path = std::string(path)](std::size_t lines) { return report_dropped(path, lines); });
  const std::lock_guard lock(logs_mutex);
  logs[fd] = std::move(log);
}

host_fd open_append(const char *path) {
  HostFileGuard file(is_pipe(path) ? open_log(path) : base_table.open_append(path));
  const host_fd fd = guarded(-1, [&] {
    if (file) add_log(file.get(), path);
    return file.release();
  });
  return count_failure(fd, fd != -1);
}

/// close first writes the queued lines of the descriptor's log. A replaced database keeps no request waiting.
int close(host_fd fd) {
  if (const std::shared_ptr<LogFile> log = remove_log(fd)) log->close();
  return close_aside(fd) ? 0 : base_table.close(fd);
}

int write_log(host_fd fd, const void *bytes, std::int32_t n) {
  const std::shared_ptr<LogFile> log = log_of(fd);
  if (!log) return base_table.write_log(fd, bytes, n);
  return log->write({static_cast<const char *>(bytes), static_cast<std::size_t>(n)}) ? 1 : 0;
}

/// read() on a directory fails with EISDIR; no data is lost.
std::int32_t read(host_fd fd, void *buffer, std::int32_t n) {
  const std::int32_t result = base_table.read(fd, buffer, n);
  return count_failure(result, result != -1 || errno == EISDIR);
}

/// lseek() on a pipe fails with ESPIPE; no data is lost.
std::int64_t seek(host_fd fd, std::int64_t offset, int whence) {
  const std::int64_t result = base_table.seek(fd, offset, whence);
  return count_failure(result, result != -1 || errno == ESPIPE);
}

/// checked_stat counts a failure only for P_tmpdir, the last candidate for temporary files: without it a long answer
/// cannot be stored, and the plug-in tries no open() that would fail and be counted.
int checked_stat(const char *path, struct stat *status) {
  const int result = base_table.stat(path, status);
  const bool usable = result == 0 && S_ISDIR(status->st_mode);
  return count_failure(result, usable || std::strcmp(path, P_tmpdir) != 0, result == 0 ? ENOTDIR : errno);
}

/// write is for data, not for log lines: once a file opened for appending is written by it, the file is no longer
/// reopened as a log.
int write(host_fd fd, const void *bytes, std::int32_t n) {
  remove_log(fd);
  const int result = base_table.write(fd, bytes, n);
  return count_failure(result, result == 1);
}

void set_status(Session *session, Request *request, int status, const char *reason) {
  Exchange *exchange = exchange_of(session);
  if (exchange == nullptr) {
    if (request != nullptr) request->status = status;
    return;
  }
  guarded(0, [&] {
    exchange->set_status(status, reason);
    return 0;
  });
}

int start_response(Session *session, Request *) {
  Exchange *exchange = exchange_of(session);
  if (exchange == nullptr) return HOST_ABORT;
  return guarded<>(int{HOST_ABORT}, [&] { return exchange->start() ? int{HOST_DONE} : int{HOST_ABORT}; });
}

int net_write(host_net *socket, const void *bytes, int32_t count) {
  if (socket == nullptr || count < 0) {
    errno = EINVAL;
    return -1;
  }
  const std::string_view text(static_cast<const char *>(bytes), static_cast<std::size_t>(count));
  return guarded(-1, [&] { return socket->exchange->write(text) ? count : -1; });
}

/// send_read reads the file and queues a copy, for pipes and devices, which have no range to queue.
std::int64_t send_read(Exchange &exchange, host_fd fd) {
  char block[16384];
  std::int64_t total = 0;
  for (;;) {
    const int32_t got = host_read(fd, block, sizeof block);
    if (got == 0) return total;
    // Counted even if EISDIR: the plug-in promised the file's bytes to the client.
    if (got < 0) return count_failure(std::int64_t{-1}, false);
    if (!exchange.write({block, static_cast<std::size_t>(got)})) return -1;
    total += got;
  }
}

/// send_rest queues the file from its current position on, and moves the position to the end, as reading would.
std::int64_t send_rest(Exchange &exchange, host_fd fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0) return -1;
  const std::int64_t position = S_ISREG(status.st_mode) ? ::lseek(fd, 0, SEEK_CUR) : -1;
  if (position < 0) return send_read(exchange, fd);
  const std::int64_t length = std::max<std::int64_t>(status.st_size - position, 0);
  const std::int64_t sent = exchange.send_file(fd, position, length);
  if (sent >= 0 && ::lseek(fd, position + length, SEEK_SET) < 0) return -1;
  return sent;
}

std::int64_t buffer_send(host_buffer *reader, host_net *socket) {
  if (socket == nullptr) {
    errno = ENOTCONN;
    return -1;
  }
  return guarded(std::int64_t{-1}, [&]() -> std::int64_t {
    const auto held = static_cast<std::size_t>(reader->filled - reader->position);
    const std::string_view text(reader->bytes() + reader->position, held);
    reader->position = reader->filled;
    if (!text.empty() && !socket->exchange->write(text)) return -1;
    const std::int64_t rest = send_rest(*socket->exchange, reader->fd);
    return rest < 0 ? -1 : rest + static_cast<std::int64_t>(held);
  });
}

std::int64_t send_slice(host_net *socket, const host_slice *slice) {
  if (socket == nullptr) {
    errno = ENOTCONN;
    return -1;
  }
  return guarded(std::int64_t{-1}, [&] { return socket->exchange->send_slice(*slice); });
}

void register_exit(void (*fn)(void *), void *argument) {
  guarded(0, [&] {
    const std::lock_guard lock(exits_mutex);
    exits.push_back(Exit{fn, argument});
    return 0;
  });
}

[[gnu::format(printf, 1, 0)]] std::string format_text(const char *format, va_list arguments) {
  char text[log_line_size];
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  return {text, static_cast<std::size_t>(std::clamp(length, 0, static_cast<int>(sizeof text) - 1))};
}

[[gnu::format(printf, 5, 0)]] void report_error(int degree, const char *function, Session *session, Request *,
                                                const char *format, va_list arguments) {
  guarded(0, [&] {
    const Exchange *exchange = exchange_of(session);
    const std::string client = exchange == nullptr ? "" : exchange->client_text("ip");
    // Escaping::non_ascii leaves backslashes alone: the plug-in has already escaped client text.
    const std::string text = log_text(format_text(format, arguments), Escaping::non_ascii);
    const std::string request = exchange == nullptr ? "" : exchange->variable(request_id_variable);
    report_to(Report{degree, function, client, cut_text(text, log_line_size - 1), request});
    return 0;
  });
}

}  // namespace

void bind_host(Reporter reporter, const qxapi_host &base) {
  report_to = std::move(reporter);
  base_table = base;
  close_logs();
  qxapi_host table = base;
  table.alloc = allocate;
  table.realloc = reallocate;
  table.strdup = duplicate;
  table.open_write = open_write;
  table.open_append = open_append;
  table.read = read;
  table.seek = seek;
  table.stat = checked_stat;
  table.write = write;
  table.write_log = write_log;
  table.close = close;
  table.set_status = set_status;
  table.start_response = start_response;
  table.net_write = net_write;
  table.buffer_send = buffer_send;
  table.register_exit = register_exit;
  table.report_error = report_error;
  qxapi_bind(&table);
  qxapi_bind_slices(send_slice);
}

long resource_failures() { return resource_failure_count; }

int last_resource_failure() { return resource_failure_reason; }

void reopen_logs() {
  std::vector<std::shared_ptr<LogFile>> open;
  {
    const std::lock_guard lock(logs_mutex);
    for (const auto &[fd, log] : logs) open.push_back(log);
  }
  for (const std::shared_ptr<LogFile> &log : open)
    if (!log->reopen()) report_old_file(log->path(), errno);
}

void run_exits() {
  std::vector<Exit> due;
  {
    const std::lock_guard lock(exits_mutex);
    due.swap(exits);
  }
  for (const Exit &exit : due) exit.fn(exit.argument);
  close_logs();
}

}  // namespace rdm::hosts
