// SPDX-License-Identifier: MIT
/// Writes catalogs with given records and a given index.
#ifndef TESTS_HOSTS_RDMD_CHECK_CATALOG_FILES_H
#define TESTS_HOSTS_RDMD_CHECK_CATALOG_FILES_H

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

/// records_of returns the records of the descriptions.
Records records_of(const Descriptions &descriptions);

/// make_database writes a catalog database, replacing any file at `path`.
void make_database(const std::string &path, const Records &records);

/// index_of returns the bytes of the index of a database of these descriptions.
std::string index_of(const Descriptions &descriptions);

/// big_endian returns a number as four bytes.
std::string big_endian(std::uint32_t number);

}  // namespace rdm::support

#endif
