// SPDX-License-Identifier: MIT
#include "catalog/url_map.h"

#include <algorithm>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "hashdb/format.h"

namespace rdm::catalog {

std::optional<UrlMap> UrlMap::open(const HashTable &database, std::string &error) {
  error.clear();
  const std::string path = path_for(database.path());
  if (!status_of(path)) return std::nullopt;
  try {
    HashTable table(path);
    if (table.trailer() && table.trailer()->database == identity_of(database.file())) return UrlMap(std::move(table));
  } catch (const SystemFailure &failure) {
    error = failure.what();
  } catch (const Failure &) {
    // A damaged map is ignored: lookups read the records instead.
  }
  return std::nullopt;
}

std::optional<uint32_t> UrlMap::number_of(std::string_view url) const {
  const auto key = table_.get(url);
  return key ? catalog::number_of(*key) : std::nullopt;
}

void UrlMap::each(const Visitor &visit) const {
  table_.each([&](std::string_view url, std::string_view key) { visit(url, catalog::number_of(key).value_or(0)); });
}

void seal(const File &map) {
  std::optional<Trailer> trailer = Trailer::read(map);
  if (!trailer) throw Failure("cannot verify " + map.name() + ": it does not contain what was written");
  trailer->content = content_checksum(map);
  trailer->write(map);
}

void UrlItems::add(std::string_view url, uint32_t number) {
  const int64_t offset = texts_.append(url);
  texts_.append(database_key(number));
  refs_.push_back({offset, hash_of(url), static_cast<uint32_t>(url.size()), database_key_size});
}

void UrlItems::add_from(const ScratchFile &texts, int64_t offset, uint32_t hash, uint32_t size) {
  others_ = &texts;
  refs_.push_back({texts_.size() + offset, hash, size, database_key_size});
}

void UrlItems::read(const RecordRef &ref, std::string &text) const {
  text.resize(ref.key_size + ref.value_size);
  if (ref.offset < texts_.size())
    texts_.read(ref.offset, text.data(), text.size());
  else
    others_->read(ref.offset - texts_.size(), text.data(), text.size());
}

void UrlItems::write(const AtomicFile &output, const File &database, uint32_t next_number, time_t newest_change) {
  std::string text;
  const RecordLoader load = [&](const RecordRef &ref) {
    read(ref, text);
    const std::string_view bytes = text;
    return Record{bytes.substr(0, ref.key_size), bytes.substr(ref.key_size)};
  };
  build_hash_file(output.file(), refs_, load, {next_number, 0, identity_of(database), newest_change});
  seal(output.file());
}

void UrlScan::add(std::string_view url, uint32_t number) {
  entries_.emplace_back(hashdb::default_hash(url.data(), url.size()), number);
  highest_ = std::max(highest_, number);
}

void UrlScan::sort() { std::sort(entries_.begin(), entries_.end()); }

std::vector<uint32_t> UrlScan::candidates(std::string_view url) const {
  const uint32_t hash = hashdb::default_hash(url.data(), url.size());
  std::vector<uint32_t> numbers;
  for (auto entry = std::lower_bound(entries_.begin(), entries_.end(), std::pair(hash, 0u));
       entry != entries_.end() && entry->first == hash; ++entry)
    numbers.push_back(entry->second);
  return numbers;
}

}  // namespace rdm::catalog
