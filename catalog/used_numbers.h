// SPDX-License-Identifier: MIT
/// The numbers and times that a database has used, as far as a damaged one can be read.
#ifndef CATALOG_USED_NUMBERS_H
#define CATALOG_USED_NUMBERS_H

#include <cstdint>
#include <ctime>
#include <string>

#include "catalog/hash/table.h"

namespace rdm::catalog {

struct UsedNumbers {
  uint32_t next_number = 1;  // neither this number nor a higher one is known to be used; 0 if all are used
  std::string damage;        // the reason why part of the database could not be read; empty if all was read
  time_t newest_change = 0;  // the newest valid_change_time; 0 if there is none
  bool is_empty = true;      // the database is sound and has no records
};

/// used_numbers reads the records and the trailer of a database and the trailer of its URL map. It skips damaged parts.
/// It throws a Failure if the database cannot be opened or is not a regular file.
UsedNumbers used_numbers(const std::string &database);

/// used_in reads only the records of a table.
UsedNumbers used_in(const HashTable &table);

}  // namespace rdm::catalog

#endif
