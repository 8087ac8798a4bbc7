#include "tools/minidba/url_map.h"

#include <charconv>
#include <unordered_map>

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

std::string identity_record(const std::string &identity, uint32_t next_number) {
  return identity + " next " + std::to_string(next_number);
}

void write_map(const std::string &path, const std::string &identity, uint32_t next_number,
               const std::function<void(const UrlMap::Visit &)> &each_url) {
  const std::string record = identity_record(identity, next_number);
  const Produce produce = [&](const HashTable::Visit &put) {
    put(identity_key, record);
    each_url([&](std::string_view url, uint32_t number) { put(url, database_key(number)); });
  };
  Shape shape;
  produce([&](std::string_view key, std::string_view value) {
    shape.add(static_cast<int64_t>(key.size()), static_cast<int64_t>(value.size()));
  });
  write_hash_table(path, shape, produce);
}

}  // namespace

UrlMap::UrlMap(std::string path, const HashTable *database) : path_(std::move(path)) {
  if (database != nullptr && !open(database->path())) rebuild(*database);
}

/// open returns whether the map on the disk belongs to the database.
bool UrlMap::open(const std::string &database) {
  if (!status_of(path_)) return false;
  try {
    HashTable table(path_);
    const std::string record = table.get(identity_key).value_or("");
    const std::string expected = identity_of(database) + " next ";
    if (record.compare(0, expected.size(), expected) != 0) return false;
    const char *number = record.data() + expected.size(), *end = record.data() + record.size();
    if (std::from_chars(number, end, next_number_).ptr != end || number == end) return false;
    table_.emplace(std::move(table));
    return true;
  } catch (const Failure &) {
    return false;
  }
}

void UrlMap::rebuild(const HashTable &database) {
  std::unordered_map<std::string, uint32_t> numbers;
  next_number_ = 1;
  database.each([&](std::string_view key, std::string_view value) {
    const auto number = minidba::number_of(key);
    const soif_ptr object = parse(value);
    if (!number || !object) throw Failure("damaged record " + std::string(key) + " in " + database.path());
    next_number_ = std::max(next_number_, *number + 1);
    const auto [entry, is_new] = numbers.emplace(object->url, *number);
    if (!is_new) entry->second = std::min(entry->second, *number);
  });
  Snapshot snapshot(path_);
  write_map(snapshot.path(), identity_of(database.path()), next_number_, [&](const Visit &visit) {
    for (const auto &[url, number] : numbers) visit(url, number);
  });
  snapshot.sync();
  snapshot.commit();
  table_.emplace(path_);
}

std::optional<uint32_t> UrlMap::number_of(std::string_view url) const {
  if (!table_) return std::nullopt;
  const auto key = table_->get(url);
  return key ? minidba::number_of(*key) : std::nullopt;
}

void UrlMap::write(Snapshot &snapshot, const std::string &database, uint32_t next_number,
                   const std::function<void(const Visit &)> &additions) const {
  write_map(snapshot.path(), identity_of(database), next_number, [&](const Visit &visit) {
    if (table_)
      table_->each([&](std::string_view url, std::string_view key) {
        if (url != identity_key) visit(url, minidba::number_of(key).value_or(0));
      });
    additions(visit);
  });
  snapshot.sync();
}

}  // namespace minidba
