/// Which numbers a database has given, sound or not, and whether it holds anything.
#ifndef MINIDBA_USED_NUMBERS_H
#define MINIDBA_USED_NUMBERS_H

#include <cstdint>
#include <string>

namespace minidba {

/// UsedNumbers is what can be known of the numbers that were given.
struct UsedNumbers {
  uint32_t next_number = 1;  // no number from here on is known to have been given; 0 when none is left
  std::string damage;        // what keeps part of the database from being read; empty where nothing does
  bool is_empty = true;      // it is sound and has no records; a damaged one may have some
};

/// used_numbers reads a database, and what its URL map says about it, as far as they can be read. Throws a Failure
/// where the database cannot be opened at all or is no regular file.
UsedNumbers used_numbers(const std::string &database);

}  // namespace minidba

#endif
