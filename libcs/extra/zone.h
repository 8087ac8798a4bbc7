// SPDX-License-Identifier: MIT
/// The local time zone.
#ifndef LIBCS_EXTRA_ZONE_H
#define LIBCS_EXTRA_ZONE_H

#include <ctime>

namespace rdm::zone {

/// minutes_ahead returns the offset of `local` from `utc` in minutes. Both are fields of the same instant; seconds are
/// ignored.
int minutes_ahead(const struct tm &local, const struct tm &utc) noexcept;

}  // namespace rdm::zone

#endif
