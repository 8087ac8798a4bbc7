// SPDX-License-Identifier: MIT
/// The times of change of descriptions.
///
/// Gatherers ask for descriptions that have changed since the newest time that they hold. A change must therefore get a
/// later time than every change before it, or gatherers would miss it. The clock alone does not ensure that.
#ifndef CATALOG_CHANGE_TIMES_H
#define CATALOG_CHANGE_TIMES_H

#include <ctime>

#include "catalog/object_view.h"

namespace rdm::catalog {

/// latest_change is the end of the year 2099, in seconds since 1970. A record with a later time counts as one without a
/// time: the 32-bit times of an index end in 2106, and a single record must not use up the remaining ones.
constexpr time_t latest_change = 4102444799;

/// valid_change_time returns the time of change of a description in seconds since 1970, or 0 if it has none, if it
/// cannot be parsed, or if it is later than latest_change.
time_t valid_change_time(const ObjectView &object);
/// valid_change_time does the same for a time of change, which is 0 if there is none.
time_t valid_change_time(time_t change_time);

/// next_change returns the time of change for a change at `clock` in a catalog whose newest time of change is `newest`:
/// `clock`, at most latest_change, or the second after `newest` if that is later.
time_t next_change(time_t newest, time_t clock);

/// is_ahead returns true if a time of change is more than a day after the clock. Users are then warned: a search for
/// recent changes does not find such descriptions at the expected times.
inline bool is_ahead(time_t time, time_t clock) { return time > clock + time_t{24} * 60 * 60; }

}  // namespace rdm::catalog

#endif
