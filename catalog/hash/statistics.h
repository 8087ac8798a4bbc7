// SPDX-License-Identifier: MIT
/// How a hash file is laid out.
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
  int64_t records;  // as the header counts them
};

/// statistics_of reads the layout from the header of a sound hash file.
FileStatistics statistics_of(const std::string &path);

}  // namespace rdm::catalog

#endif
