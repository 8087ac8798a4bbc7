// SPDX-License-Identifier: MIT
/// The times at which descriptions change.
///
/// Gatherers ask for what has changed since the newest time that they hold. So a time that was given once must never be
/// given again, or an earlier one: what has it would not be asked for. The clock alone does not ensure that.
#ifndef CATALOG_CHANGE_TIMES_H
#define CATALOG_CHANGE_TIMES_H

#include <ctime>

#include "libcs/guard.h"

namespace rdm::catalog {

/// latest_change is the end of the year 2099. A record with a later time counts as one without a time: the times of an
/// index end in 2106, and a single record must not use up those that are left.
constexpr time_t latest_change = 4102444799;

/// believed_change returns the time of change of a description: 0 if it has none, if it cannot be read, or if it is
/// later than latest_change.
time_t believed_change(const SOIF *object);

/// next_change returns the time for what changes now, if `newest` is the newest that the catalog has given: that of the
/// clock, or the next second after the newest if the clock is not later.
time_t next_change(time_t newest, time_t clock);

/// is_ahead returns true if a time is more than a day after the clock, which is worth a warning: who looks for what has
/// changed lately would not expect it.
inline bool is_ahead(time_t time, time_t clock) { return time > clock + 24 * 60 * 60; }

}  // namespace rdm::catalog

#endif
