// SPDX-License-Identifier: MIT
#include <clocale>
#include <ctime>

#include "qxapi/posix.h"

namespace rdm::posix_host {
namespace {

/// The C locale, whatever locale the host program has set.
locale_t c_locale() {
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

int format_time(char *buffer, size_t size, const char *format, const struct tm *tm) {
  if (size == 0) return 0;
  *buffer = '\0';
  const size_t length = ::strftime_l(buffer, size, format, tm, c_locale());
  if (length == 0) *buffer = '\0';
  return static_cast<int>(length);
}

struct tm *utc(const time_t *t, struct tm *out) {
  return ::gmtime_r(t, out);
}

}  // namespace rdm::posix_host
