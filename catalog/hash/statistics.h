// SPDX-License-Identifier: MIT
/// The layout of a hash file, for reports.
#ifndef CATALOG_HASH_STATISTICS_H
#define CATALOG_HASH_STATISTICS_H

#include <cstdint>
#include <string>

namespace rdm::catalog {

struct FileStatistics {
  int64_t file_bytes;
  int64_t page_size;
  int64_t pages;
  int64_t buckets;
  int64_t overflow_pages;
  int64_t records;  // the count in the header; below zero if the hash library has miscounted
};

/// statistics_of reads the header of a sound hash file. Throws a Failure if it cannot.
FileStatistics statistics_of(const std::string &path);

}  // namespace rdm::catalog

#endif
