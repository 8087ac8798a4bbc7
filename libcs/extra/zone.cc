// SPDX-License-Identifier: MIT
#include "libcs/extra/zone.h"

#include <ctime>

#include <libcs/cs.h>

namespace rdm::zone {
namespace {

/// days_ahead converts a difference of days of the year. The dates are at most one day apart, so a larger difference
/// spans New Year.
int days_ahead(int difference) {
  if (difference >= 2) return -1;
  return difference < -1 ? 1 : difference;
}

}  // namespace

int minutes_ahead(const struct tm &local, const struct tm &utc) noexcept {
  const int hours = days_ahead(local.tm_yday - utc.tm_yday) * 24 + local.tm_hour - utc.tm_hour;
  return hours * 60 + local.tm_min - utc.tm_min;
}

}  // namespace rdm::zone

int ZAN_LocalZoneOffset(void) noexcept {
  const time_t now = ::time(nullptr);
  struct tm local, utc;
  ::tzset();
  if (::localtime_r(&now, &local) == nullptr || ::gmtime_r(&now, &utc) == nullptr) return 0;
  return rdm::zone::minutes_ahead(local, utc);
}
