// SPDX-License-Identifier: MIT
/// Which numbers a database has given, sound or not, and whether it holds anything.
#ifndef CATALOG_USED_NUMBERS_H
#define CATALOG_USED_NUMBERS_H

#include <cstdint>
#include <ctime>
#include <string>

#include "catalog/hash/table.h"

namespace rdm::catalog {

/// UsedNumbers is what can be known of the numbers that were given.
struct UsedNumbers {
  uint32_t next_number = 1;  // no number from here on is known to have been given; 0 when none is left
  std::string damage;        // what keeps part of the database from being read; empty where nothing does
  time_t newest_change = 0;  // no description is known to have a later time of change that is believed
  bool is_empty = true;      // it is sound and has no records; a damaged one may have some
};

/// used_numbers reads a database, and what its URL map says about it, as far as they can be read. Throws a Failure
/// where the database cannot be opened at all or is no regular file.
UsedNumbers used_numbers(const std::string &database);

/// used_in reads the records of a table alone, as far as they can be read.
UsedNumbers used_in(const HashTable &table);

}  // namespace rdm::catalog

#endif
