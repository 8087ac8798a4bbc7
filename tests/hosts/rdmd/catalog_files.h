// SPDX-License-Identifier: MIT
/// Catalogs whose records and index a test makes up.
#ifndef TESTS_HOSTS_RDMD_CATALOG_FILES_H
#define TESTS_HOSTS_RDMD_CATALOG_FILES_H

#include <cstdint>
#include <map>
#include <string>

namespace rdm::support {

struct Description {
  std::string title;
  std::uint32_t changed;  // seconds since 1970
};

/// Descriptions by their number.
using Descriptions = std::map<std::uint32_t, Description>;

/// Records by their key.
using Records = std::map<std::string, std::string>;

/// records_of returns the descriptions as they stand in a database.
Records records_of(const Descriptions &descriptions);

/// make_database writes a catalog database in place of any file at `path`.
void make_database(const std::string &path, const Records &records);

/// index_of returns the bytes of the index that fits such a database.
std::string index_of(const Descriptions &descriptions);

/// big_endian returns the four bytes of a number.
std::string big_endian(std::uint32_t number);

}  // namespace rdm::support

#endif
