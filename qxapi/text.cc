// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "qxapi/hex.h"
#include "qxapi/log_text.h"
#include "qxapi/posix.h"

namespace rdm::posix_host {
namespace {

/// write_report writes the line "KIND FUNCTION: text" to standard error, cut to the size of a log line.
void write_report(const char *kind, const char *function, const char *text) {
  char line[log_line_size];
  const int length = std::snprintf(line, sizeof line, "%s %s: %s", kind, function, text);
  const std::string_view whole(line, std::min(static_cast<size_t>(length), sizeof line - 1));
  const std::string_view cut = cut_text(whole, sizeof line - 2);
  std::fprintf(stderr, "%.*s\n", static_cast<int>(cut.size()), cut.data());
}

}  // namespace

void report_error(int degree, const char *function, Session *, Request *, const char *format, va_list arguments) {
  char text[log_line_size] = "";
  std::vsnprintf(text, sizeof text, format, arguments);
  std::string_view line = text;
  if (line.ends_with('\n')) line.remove_suffix(1);
  write_report(degree == 0 ? "failure" : "report", function, LogText(line).c_str());
}

char *last_error_text() {
  static thread_local char text[256];
  const char *described = ::strerror_r(errno, text, sizeof text);
  if (described != text) text[std::string_view(described).copy(text, sizeof text - 1)] = '\0';
  return text;
}

int format(char *buffer, size_t size, const char *format, va_list arguments) {
  if (size == 0) return 0;
  const int length = std::vsnprintf(buffer, size, format, arguments);
  if (length < 0) *buffer = '\0';
  return static_cast<int>(std::min(static_cast<size_t>(std::max(length, 0)), size - 1));
}

int decimal(int64_t n, char *buffer) {
  char *end = std::to_chars(buffer, buffer + 20, n).ptr;
  *end = '\0';
  return static_cast<int>(end - buffer);
}

void unescape(char *text) {
  char *out = text;
  for (std::string_view rest = text; !rest.empty(); ++out) {
    const int byte = hex::escaped_byte(rest);
    *out = byte >= 0 ? static_cast<char>(byte) : rest.front();
    rest.remove_prefix(byte >= 0 ? 3 : 1);
  }
  *out = '\0';
}

int thread_id() { return ::gettid(); }

}  // namespace rdm::posix_host
