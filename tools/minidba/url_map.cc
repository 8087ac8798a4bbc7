#include "tools/minidba/url_map.h"

#include <algorithm>
#include <charconv>

#include "dba/hash_file.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

/// The record that names the snapshot; no URL begins with a NUL.
constexpr std::string_view identity_key{"\0snapshot", 9};

/// identity_of returns what tells one snapshot of a file from another.
std::string identity_of(const std::string &path) {
  const auto status = status_of(path);
  if (!status) throw Failure("not there: " + path);
  return std::to_string(status->st_dev) + " " + std::to_string(status->st_ino) + " " + std::to_string(status->st_size) +
         " " + std::to_string(status->st_mtim.tv_sec) + "." + std::to_string(status->st_mtim.tv_nsec);
}

/// number_behind returns the number that a text consists of behind a prefix.
std::optional<uint32_t> number_behind(const std::string &prefix, const std::string &text) {
  if (text.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  uint32_t number = 0;
  const char *begin = text.data() + prefix.size(), *end = text.data() + text.size();
  const auto result = std::from_chars(begin, end, number);
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<UrlMap> UrlMap::open(const std::string &database) {
  const std::string path = path_for(database);
  if (!status_of(path)) return std::nullopt;
  try {
    HashTable table(path);
    const std::string record = table.get(identity_key).value_or("");
    const auto next_number = number_behind(identity_of(database) + " next ", record);
    if (next_number) return UrlMap(std::move(table), *next_number);
  } catch (const Failure &) {
    // Without a map it goes on more slowly.
  }
  return std::nullopt;
}

std::optional<uint32_t> UrlMap::number_of(std::string_view url) const {
  const auto key = table_.get(url);
  return key ? minidba::number_of(*key) : std::nullopt;
}

void UrlMap::each(const Visit &visit) const {
  table_.each([&](std::string_view url, std::string_view key) {
    if (url != identity_key) visit(url, minidba::number_of(key).value_or(0));
  });
}

void UrlMap::write(Snapshot &snapshot, const std::string &database, uint32_t next_number,
                   const std::function<void(const Visit &)> &produce) {
  const std::string identity = identity_of(database) + " next " + std::to_string(next_number);
  const Produce records = [&](const HashTable::Visit &put) {
    put(identity_key, identity);
    produce([&](std::string_view url, uint32_t number) { put(url, database_key(number)); });
  };
  Shape shape;
  records([&](std::string_view key, std::string_view value) {
    shape.add(static_cast<int64_t>(key.size()), static_cast<int64_t>(value.size()));
  });
  write_hash_table(snapshot.path(), shape, records);
  snapshot.sync();
}

void UrlScan::add(std::string_view url, uint32_t number) {
  entries_.emplace_back(hash_file::default_hash(url.data(), url.size()), number);
  highest_ = std::max(highest_, number);
}

void UrlScan::sort() { std::sort(entries_.begin(), entries_.end()); }

std::vector<uint32_t> UrlScan::candidates(std::string_view url) const {
  const uint32_t hash = hash_file::default_hash(url.data(), url.size());
  std::vector<uint32_t> numbers;
  for (auto entry = std::lower_bound(entries_.begin(), entries_.end(), std::pair(hash, 0u));
       entry != entries_.end() && entry->first == hash; ++entry)
    numbers.push_back(entry->second);
  return numbers;
}

}  // namespace minidba
