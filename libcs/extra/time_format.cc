// SPDX-License-Identifier: MIT
#include <ctime>

#include <libcs/cs.h>

namespace {

int print(const struct tm *fields, const char *format, char *buffer, int size) {
  if (size < 1) return 0;
  *buffer = '\0';
  return fields == nullptr ? 0 : host_format_time(buffer, static_cast<size_t>(size), format, fields);
}

int print_utc(time_t t, const char *format, char *buffer, int size) {
  struct tm fields;
  return print(host_gmtime(&t, &fields), format, buffer, size);
}

}  // namespace

int cs_time2str(time_t t, char *buffer, int size) noexcept {
  return print_utc(t, "%a, %d %h %Y %H:%M:%S GMT", buffer, size);
}

int cs_time2str_simple_dateonly(time_t t, char *buffer, int size) noexcept {
  return print_utc(t, "%m/%d/%y", buffer, size);
}

int cs_time2str_simple_datetimeonly(time_t t, char *buffer, int size) noexcept {
  return print_utc(t, "%m/%d/%y %H:%M:%S", buffer, size);
}

int cs_time2informix(time_t t, char *buffer, int size) noexcept {
  struct tm fields;
  ::tzset();
  return print(::localtime_r(&t, &fields), "%Y-%m-%d %T", buffer, size);
}
