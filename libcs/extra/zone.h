// SPDX-License-Identifier: MIT
/// The local time zone.
#ifndef LIBCS_EXTRA_ZONE_H
#define LIBCS_EXTRA_ZONE_H

#include <ctime>

namespace rdm::zone {

/// minutes_ahead returns by how many minutes `local` is ahead of `utc`, the fields of one instant in either zone.
/// Seconds do not count.
int minutes_ahead(const struct tm &local, const struct tm &utc) noexcept;

}  // namespace rdm::zone

#endif
