// SPDX-License-Identifier: MIT
/// The measure of loading: putting records with the hash library.
#ifndef BENCH_SPEED_RAW_PUTS_H
#define BENCH_SPEED_RAW_PUTS_H

#include <string>

#include "speed/rounds.h"

namespace rdm::bench {

/// cost_of_raw_puts copies the records of a catalog into a new database with the hash library (libdb1), which gets
/// pages of 32 KiB, and syncs it. The cost includes the reading.
Cost cost_of_raw_puts(const std::string &from, const std::string &to);

}  // namespace rdm::bench

#endif
