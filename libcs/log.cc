// SPDX-License-Identifier: MIT
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include <libcs/log.h>

#include "libcs/log_owner.h"
#include "qxapi/ascii.h"
#include "qxapi/log_text.h"

using namespace rdm;

int32_t _cslog_level = 0;
int32_t _cslog_module = 1;

namespace {

constexpr size_t prefix_size = 512;

/// The destination of lines: a stream, a file or nothing.
struct Destination {
  FILE *stream = nullptr;
  host_fd file = -1;
};
Destination sink;

/// The properties of a thread's next line. The fields are atomic because threads may share a slot.
struct CallSite {
  std::atomic<int32_t> kind;
  std::atomic<const char *> file;
  std::atomic<int32_t> line;
};
std::array<CallSite, 32> call_sites;

int slot_of(int thread) { return thread & 31; }

void set_call_site(CallSite &site, int32_t kind, const char *file, int32_t line) {
  site.kind.store(kind, std::memory_order_relaxed);
  site.file.store(file, std::memory_order_relaxed);
  site.line.store(line, std::memory_order_relaxed);
}

/// visible returns the text printed for a format or file. The attribute tells the compiler that it is still a format.
[[gnu::format_arg(1)]] const char *visible(const char *text) {
  if (text == nullptr) return "(null)";
  return *text == '\0' ? "(empty)" : text;
}

const char *base_name(const char *file) {
  const char *slash = file == nullptr ? nullptr : std::strrchr(file, '/');
  return slash == nullptr ? file : slash + 1;
}

size_t format_stamp(char *buffer) {
  const time_t now = std::time(nullptr);
  struct tm local {};
  ::localtime_r(&now, &local);
  return static_cast<size_t>(host_format_time(buffer, prefix_size, "[%d/%b/%Y:%H:%M:%S]", &local));
}

/// format_prefix writes everything before the message. Returns its length.
size_t format_prefix(char *buffer) {
  const int process = ::getpid();
  const int slot = slot_of(host_thread_id());
  const CallSite &site = call_sites[static_cast<size_t>(slot)];
  const size_t stamp = format_stamp(buffer);
  char *const out = buffer + stamp;
  const size_t size = prefix_size - stamp;
  int length = 0;
  switch (site.kind.load(std::memory_order_relaxed)) {
    case CSLOG_SOURCE:
      length = host_format(out, size, " %5d@%d: (%s:%d):\t ", process, slot, visible(base_name(site.file)),
                           site.line.load(std::memory_order_relaxed));
      break;
    case CSLOG_WARNING:
      length = host_format(out, size, " %5d@%d: %s: ", process, slot, "WARNING");
      break;
    case CSLOG_ERROR:
      length = host_format(out, size, " %5d@%d: %s: ", process, slot, "ERROR");
      break;
    default:
      length = host_format(out, size, " %5d@%d:\t ", process, slot);
  }
  return stamp + static_cast<size_t>(length);
}

/// format_line writes prefix and message into a buffer of log_line_size bytes. Returns the length. A cut line keeps the
/// newline of its format.
QX_PRINTF(3, 0) size_t format_line(char *line, std::string_view prefix, const char *format, va_list arguments) {
  const size_t start = prefix.copy(line, log_line_size - 1);
  const int message = std::vsnprintf(line + start, log_line_size - start, format, arguments);
  const size_t length = start + static_cast<size_t>(std::max(message, 0));
  if (length < log_line_size) return length;
  if (std::string_view(format).ends_with('\n')) line[log_line_size - 2] = '\n';
  return log_line_size - 1;
}

void write_line(std::string_view line) {
  if (sink.stream != nullptr) {
    std::fwrite(line.data(), 1, line.size(), sink.stream);
    std::fflush(sink.stream);
  } else {
    host_seek(sink.file, 0, SEEK_END);
    host_write_log(sink.file, line.data(), static_cast<int32_t>(line.size()));
  }
}

void open_file(const char *path) {
  sink.file = host_open_append(path);
  if (sink.file == -1)
    std::fprintf(stderr, "Cannot append to %s.\n", path);
  else if (::geteuid() == 0)
    _cslog_chown(path, "nobody");
}

}  // namespace

void _cslog_chown(const char *path, const char *user) noexcept {
  const struct passwd *account = ::getpwnam(user);
  if (account == nullptr)
    CSLOG(CSLOG_WARNING, "log", "Unknown user %s: Cannot chown %s.\n", user, path);
  else if (::chown(path, account->pw_uid, account->pw_gid) != 0)
    CSLOG(CSLOG_WARNING, "log", "chown: %s: %s\n", path, host_last_error_text());
}

int _cslog_set_params(int32_t kind, const char *file, int32_t line) noexcept {
  const int thread = host_thread_id();
  set_call_site(call_sites[static_cast<size_t>(slot_of(thread))], kind, file, line);
  return thread;
}

void _cslog_do_print(const char *format, ...) noexcept {
  if (sink.stream == nullptr && sink.file == -1) return;
  char prefix[prefix_size], line[log_line_size];
  const size_t prefix_length = format_prefix(prefix);
  va_list arguments;
  va_start(arguments, format);
  const size_t length = format_line(line, {prefix, prefix_length}, visible(format), arguments);
  va_end(arguments);
  write_line({line, length});
}

void cslog_init(int32_t level, const char *destination) noexcept {
  _cslog_level = level;
  sink = Destination{};
  for (CallSite &site : call_sites) set_call_site(site, CSLOG_NOTE, nullptr, 0);
  if (destination == nullptr || std::strcmp(destination, "stderr") == 0)
    sink.stream = stderr;
  else if (std::strcmp(destination, "stdout") == 0)
    sink.stream = stdout;
  else
    open_file(destination);
}

void cslog_set_level(int32_t level) noexcept { _cslog_level = level; }

void cslog_terminate(void) noexcept {
  if (sink.file != -1) host_close(sink.file);
  if (sink.stream != nullptr) std::fflush(sink.stream);
  sink = Destination{};
}

char *cslog_linestr(const char *text) noexcept {
  char *line = host_strdup(text != nullptr ? text : "");
  if (line != nullptr) std::replace_if(line, line + std::strlen(line), ascii::is_space, ' ');
  return line;
}
