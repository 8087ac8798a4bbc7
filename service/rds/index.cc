#include <endian.h>
#include <unistd.h>

#include <algorithm>

#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "service/text.h"

#include <libcs/log.h>

namespace {

constexpr uint32_t index_magic = 0x3EB1CA0E;
constexpr char catalog_key[] = "catalog-database";

/// The index file begins with this header, in big-endian order, and goes on with `count` entries.
struct IndexHeader {
  uint32_t magic;
  uint32_t count;
};
static_assert(sizeof(IndexHeader) == 8 && sizeof(cs_dbentry) == 20, "records of the index file have no padding");

bool read_exactly(host_fd fd, void *bytes, int64_t count) {
  constexpr int64_t largest_read = INT64_C(1) << 30;
  char *at = static_cast<char *>(bytes);
  while (count > 0) {
    const auto part = static_cast<int32_t>(std::min(count, largest_read));
    if (host_read(fd, at, part) != part) return false;
    at += part;
    count -= part;
  }
  return true;
}

void to_host_order(cs_dbentry &entry) {
  for (uint32_t *field : {&entry.time, &entry.reserved1, &entry.key, &entry.reserved2, &entry.reserved3})
    *field = be32toh(*field);
}

/// holds_entries returns whether the file is long enough for `count` entries, so that no memory is taken on the word of
/// a damaged header.
bool holds_entries(host_fd fd, uint32_t count) {
  const int64_t size = host_seek(fd, 0, SEEK_END);
  const int64_t first_entry = sizeof(IndexHeader);
  return host_seek(fd, first_entry, SEEK_SET) == first_entry &&
         size >= first_entry + static_cast<int64_t>(count) * static_cast<int64_t>(sizeof(cs_dbentry));
}

bool load_entries(host_fd fd, uint32_t count, cs_dbindex *index) {
  if (count == 0) return true;
  const size_t size = count * sizeof(cs_dbentry);
  index->entries = static_cast<cs_dbentry *>(host_alloc(size));
  if (index->entries == nullptr || !read_exactly(fd, index->entries, static_cast<int64_t>(size))) return false;
  index->count = count;
  std::for_each_n(index->entries, count, to_host_order);
  return true;
}

int load(host_fd fd, const char *path, cs_dbindex *index) {
  IndexHeader header{};
  if (!read_exactly(fd, &header, sizeof header) || be32toh(header.magic) != index_magic) {
    CSLOG(CSLOG_ERROR, "rds", "Indexfile is corrupt: bad magic: %s\n", path);
    return 1;
  }
  const uint32_t count = be32toh(header.count);
  if (!holds_entries(fd, count)) {
    CSLOG(CSLOG_ERROR, "rds", "Indexfile is corrupt: %u entries do not fit: %s\n", count, path);
    return 1;
  }
  return load_entries(fd, count, index) ? 0 : 1;
}

}  // namespace

int cs_dbsearch_start(const char *csid, cs_dbindex *index) noexcept {
  *index = cs_dbindex{};
  const char *database = csid != nullptr ? csid_findval(catalog_key, csid) : nullptr;
  if (database == nullptr) {
    CSLOG(CSLOG_ERROR, "rds", "Missing %s for <CSID:%s>\n", catalog_key, LogText(shown(csid)).c_str());
    return 1;
  }
  const host_text path = format_text("%s.idx", database);
  if (!path) return 1;
  const file_guard file(host_open_read(path.get()));
  if (!file) {
    CSLOG(CSLOG_ERROR, "rds", "Cannot read index for %s: %s: %s\n", catalog_key, path.get(), host_last_error_text());
    return 1;
  }
  return load(file.get(), path.get(), index);
}

int32_t cs_dbsearch(const cs_dbindex *index, time_t since) noexcept {
  if (index->count == 0) return -1;
  const int64_t count = index->count, last = count - 1;
  const auto wanted = static_cast<uint64_t>(since);
  const auto time_at = [index](int64_t i) -> uint64_t { return index->entries[i].time; };

  int64_t low = 0, high = last;
  while (low <= high) {
    const int64_t middle = (low + high) / 2;
    // A search that narrows to the last entry answers "nothing to send": harvesters overlap their windows.
    if (middle >= last) return static_cast<int32_t>(count);
    if (wanted == time_at(middle)) return static_cast<int32_t>(middle);
    if (wanted < time_at(middle))
      high = middle - 1;
    else
      low = middle + 1;
  }
  const int64_t nearest = std::clamp<int64_t>(std::min(low, high), 0, last);
  if (time_at(nearest) >= wanted) return static_cast<int32_t>(nearest);
  const int64_t next = std::max(low, high);
  return time_at(next) >= wanted ? static_cast<int32_t>(next) : -1;
}
