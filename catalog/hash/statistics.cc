// SPDX-License-Identifier: MIT
#include "catalog/hash/statistics.h"

#include <algorithm>

#include "catalog/os/file.h"
#include "hashdb/format.h"

namespace rdm::catalog {

FileStatistics statistics_of(const std::string &path) {
  const File file = File::open(path);
  const int64_t size = file.size();
  unsigned char bytes[hashdb::header_size];
  file.read_at(0, bytes, sizeof bytes);
  const hashdb::Header header = hashdb::decode(bytes);
  const uint32_t overflow_pages = header.spares[std::min(header.overflow_point, hashdb::doublings - 1)];
  return {size,
          header.page_size,
          size / header.page_size,
          int64_t{header.max_bucket} + 1,
          overflow_pages,
          static_cast<int32_t>(header.records)};
}

}  // namespace rdm::catalog
