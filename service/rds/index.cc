// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <libcs/log.h>

#include "dba/index_format.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "service/rds/descriptions.h"
#include "service/rds/index_search.h"
#include "service/text.h"

using namespace rdm;

namespace {

/// A short index is loaded as far as it goes if it lacks at most this many bytes; otherwise a damaged header could make
/// us allocate any amount of memory.
constexpr int64_t largest_lack = 65536;

static_assert(sizeof(cs_dbentry) == index_format::entry_size, "entries are decoded in place");

/// read_up_to reads up to `count` bytes. Returns the number read, fewer at the end of the file and after an error.
int64_t read_up_to(host_fd fd, void *bytes, int64_t count) {
  constexpr int64_t largest_read = INT64_C(1) << 30;
  int64_t total = 0;
  while (total < count) {
    const auto part = static_cast<int32_t>(std::min(count - total, largest_read));
    const int32_t got = host_read(fd, static_cast<char *>(bytes) + total, part);
    total += std::max(got, 0);
    if (got != part) break;
  }
  return total;
}

void decode(cs_dbentry &entry) {
  const auto [time, reserved, number, size, checksum] =
      index_format::decode({reinterpret_cast<const char *>(&entry), sizeof entry});
  entry = {time, reserved, number, size, checksum};
}

constexpr int64_t entries_size(uint32_t count) {
  return static_cast<int64_t>(count) * static_cast<int64_t>(sizeof(cs_dbentry));
}

/// missing_bytes returns the number of bytes that the file lacks for `count` entries, 0 or less if none.
int64_t missing_bytes(host_fd fd, uint32_t count) {
  const int64_t size = host_seek(fd, 0, SEEK_END);
  const int64_t first_entry = index_format::header_size;
  if (host_seek(fd, first_entry, SEEK_SET) != first_entry) return INT64_MAX;
  return first_entry + entries_size(count) - size;
}

/// load_entries returns true if it has read every entry that the header counts. The others are set to 0, so that a
/// caller who goes by the count reads no uninitialised memory.
bool load_entries(host_fd fd, cs_dbindex *index) {
  if (index->count == 0) return true;
  const int64_t size = entries_size(index->count);
  index->entries = static_cast<cs_dbentry *>(host_alloc(static_cast<size_t>(size)));
  if (index->entries == nullptr) return false;
  const int64_t got = read_up_to(fd, index->entries, size);
  const int64_t whole = got - got % entries_size(1);
  std::memset(reinterpret_cast<char *>(index->entries) + whole, 0, static_cast<size_t>(size - whole));
  std::for_each_n(index->entries, index->count, decode);
  return got == size;
}

int load(host_fd fd, const char *path, cs_dbindex *index) {
  char bytes[index_format::header_size] = {};
  const std::string_view header(bytes, sizeof bytes);
  if (read_up_to(fd, bytes, sizeof bytes) != sizeof bytes || !index_format::has_magic(header)) {
    CSLOG(CSLOG_ERROR, "rds", "Indexfile is corrupt: bad magic: %s\n", path);
    return 1;
  }
  index->count = index_format::entry_count(header);
  const int64_t missing = missing_bytes(fd, index->count);
  if (missing > 0) CSLOG(CSLOG_ERROR, "rds", "Indexfile is corrupt: %u entries do not fit: %s\n", index->count, path);
  return missing <= largest_lack && load_entries(fd, index) ? 0 : 1;
}

}  // namespace

int cs_dbsearch_start(const char *csid, cs_dbindex *index) noexcept {
  *index = cs_dbindex{};
  const char *database = csid != nullptr ? csid_findval(catalog_key, csid) : nullptr;
  if (database == nullptr) {
    CSLOG(CSLOG_ERROR, "rds", "Missing %s for <CSID:%s>\n", catalog_key,
          LogText(csid != nullptr ? csid : "(null)").c_str());
    return 1;
  }
  const HostText path = format_text("%s.idx", database);
  if (!path) return 1;
  const HostFileGuard file(host_open_read(path.get()));
  if (!file) {
    CSLOG(CSLOG_ERROR, "rds", "Cannot read index for %s: %s: %s\n", catalog_key, path.get(), host_last_error_text());
    return 1;
  }
  return load(file.get(), path.get(), index);
}

int32_t cs_dbsearch(const cs_dbindex *index, time_t since) noexcept {
  if (index->count == 0 || index->entries == nullptr) return -1;
  return search_index(index->count, static_cast<uint64_t>(since),
                      [index](int64_t position) { return index->entries[position].time; });
}
