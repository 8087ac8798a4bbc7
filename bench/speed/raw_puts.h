// SPDX-License-Identifier: MIT
/// The measure of loading: putting records with the hash library.
#ifndef BENCH_SPEED_RAW_PUTS_H
#define BENCH_SPEED_RAW_PUTS_H

#include <cstddef>
#include <string>

#include "speed/rounds.h"

namespace rdm::bench {

/// cost_of_raw_puts copies the records of a catalog, of about 2 KB each, into a new database with the hash library
/// (libdb1), and syncs it. The library is told how many there are, because it refuses to grow beyond some 280,000. The
/// cost includes the reading.
Cost cost_of_raw_puts(const std::string &from, const std::string &to, std::size_t records);

}  // namespace rdm::bench

#endif
