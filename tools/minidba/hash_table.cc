#include "tools/minidba/hash_table.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>

#include "tools/minidba/failure.h"

namespace minidba {
namespace {

constexpr int64_t smallest_page = 4096, largest_page = 32768;
constexpr int64_t pair_overhead = 4;  // two offsets a pair
constexpr int64_t largest_cache = int64_t{1} << 30;
constexpr int attempts = 6;

DBT dbt(std::string_view bytes) {
  DBT item;
  item.data = const_cast<char *>(bytes.data());
  item.size = bytes.size();
  return item;
}

std::string_view view(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

/// layout returns the parameters of an attempt. Where the largest page allows it, a page holds two of the longest
/// record and sixteen of the average one, and is filled to about half, so that few buckets overflow: an overflow makes
/// the library split buckets, which is where it loses records. Each further attempt spreads the records over twice as
/// many buckets, which also takes them apart in another way.
HASHINFO layout(const Shape &shape, int attempt) {
  const int64_t records = std::max<int64_t>(shape.records, 1);
  const int64_t average = shape.bytes / records + pair_overhead;
  const int64_t wanted = std::max(2 * (shape.longest + pair_overhead) + 64, 16 * average);
  const int64_t page = std::clamp<int64_t>(static_cast<int64_t>(std::bit_ceil(static_cast<uint64_t>(wanted))),
                                           smallest_page, largest_page);
  const int64_t fill = std::clamp<int64_t>((page / 2 / average) >> attempt, 1, 1 << 14);
  const int64_t elements = fill == 1 ? records << std::min(attempt, 3) : records;
  const int64_t expected = 2 * (elements / fill + 1) * page + 2 * shape.bytes;
  HASHINFO info{};
  info.bsize = static_cast<u_int32_t>(page);
  info.ffactor = static_cast<u_int32_t>(fill);
  info.nelem = static_cast<u_int32_t>(std::min<int64_t>(elements, INT32_MAX));
  info.cachesize = static_cast<u_int32_t>(std::min(expected, largest_cache));
  return info;
}

/// write_once returns whether every put and the close went well.
bool write_once(const std::string &path, const HASHINFO &info, const Produce &produce) {
  ::unlink(path.c_str());
  database_ptr database(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644, DB_HASH, &info));
  if (!database) throw system_failure("cannot create " + path);
  bool sound = true;
  produce([&](std::string_view key, std::string_view value) {
    if (!sound) return;
    DBT name = dbt(key);
    const DBT content = dbt(value);
    errno = 0;
    sound = dba_put(database.get(), &name, &content) == 0;
    if (!sound && (errno == ENOSPC || errno == EIO || errno == EDQUOT || errno == EFBIG))
      throw system_failure("cannot write " + path);
  });
  errno = 0;
  const bool closed = dba_close(database.release()) == 0;
  if (!closed && errno != 0) throw system_failure("cannot write " + path);
  return sound && closed;
}

/// reads_back returns whether the file holds exactly the records that were written.
bool reads_back(const std::string &path, const Shape &shape, const Produce &produce) {
  try {
    const HashTable table(path);
    bool same = true;
    produce([&](std::string_view key, std::string_view value) { same = same && table.get(key) == value; });
    int64_t records = 0;
    table.each([&](std::string_view, std::string_view) { ++records; });
    return same && records == shape.records;
  } catch (const Failure &) {
    return false;
  }
}

}  // namespace

HashTable::HashTable(std::string path) : path_(std::move(path)), database_(dba_open(path_.c_str(), "r")) {
  if (!database_)
    throw errno == EINVAL ? Failure("not a sound hash database: " + path_) : system_failure("cannot open " + path_);
}

std::optional<std::string> HashTable::get(std::string_view key) const {
  const DBT name = dbt(key);
  DBT value{};
  const int result = dba_get(database_.get(), &name, &value);
  if (result < 0) throw Failure("damaged record " + std::string(key) + " in " + path_);
  if (result != 0) return std::nullopt;
  return std::string(view(value));
}

void HashTable::each(const Visit &visit) const {
  DBT key{}, value{};
  int result = dba_first(database_.get(), &key, &value);
  for (; result == 0; result = dba_next(database_.get(), &key, &value)) visit(view(key), view(value));
  if (result < 0) throw Failure("damaged page in " + path_);
}

void Shape::add(int64_t key_size, int64_t value_size) {
  ++records;
  bytes += key_size + value_size;
  longest = std::max(longest, key_size + value_size);
}

void write_hash_table(const std::string &path, const Shape &shape, const Produce &produce) {
  for (int attempt = 0; attempt < attempts; ++attempt)
    if (write_once(path, layout(shape, attempt), produce) && reads_back(path, shape, produce)) return;
  ::unlink(path.c_str());
  throw Failure("no layout of " + path + " holds these records");
}

}  // namespace minidba
