// SPDX-License-Identifier: MIT
#include "catalog/hash/table.h"

#include <sys/stat.h>

#include <algorithm>

#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

using hashdb::Cursor;

Failure unsound(const std::string &path) { return Failure("not a sound hash database: " + path); }

File open_regular(const std::string &path) {
  if (const auto status = status_of(path); status && !S_ISREG(status->st_mode)) throw unsound(path);
  return File::open(path);
}

hashdb::Source source_of(const File &file) {
  const int64_t size = file.size();
  unsigned char bytes[hashdb::header_size];
  if (size < static_cast<int64_t>(sizeof bytes)) throw unsound(file.name());
  file.read_at(0, bytes, sizeof bytes);
  const hashdb::Header header = hashdb::decode(bytes);
  if (!is_sound(header, hashdb::default_hash, size)) throw unsound(file.name());
  return {file.descriptor(), size, header, hashdb::read_by_pread};
}

/// read_next moves to the next record of a bucket. Returns false at the end and, after reporting it, at damage.
bool read_next(BucketReader &reader, const HashTable::Fault &fault) {
  try {
    return reader.next();
  } catch (const Failure &failure) {
    fault({}, {}, failure.what());
    return false;
  }
}

}  // namespace

HashTable::State::State(File opened)
    : file(std::move(opened)), source(source_of(file)), trailer(Trailer::read(file)), by_key(source) {}

HashTable::HashTable(const std::string &path) : state_(std::make_unique<State>(open_regular(path))) {}

std::optional<std::string> HashTable::get(std::string_view key) const {
  const Cursor::Result result = state_->by_key.find(bucket_of(header(), hash_of(key)), key);
  if (result == Cursor::damaged) throw Failure("damaged record " + std::string(key) + " in " + path());
  if (result == Cursor::end) return std::nullopt;
  return std::string(state_->by_key.value());
}

uint32_t HashTable::buckets() const {
  uint32_t count = header().max_bucket + 1;
  while (count > 0 && static_cast<int64_t>(bucket_page(header(), count - 1) << header().page_shift) >= source().size)
    --count;
  return count;
}

void HashTable::each(const Visitor &visit, const Linked &linked) const {
  const auto refuse = [this](std::string_view key, std::string_view, const std::string &what) {
    throw Failure(key.empty() ? what : "damaged record " + std::string(key) + " in " + path() + ": " + what);
  };
  each_sound(visit, refuse, linked);
}

/// is_only returns true if only one record of a bucket has this key: get would find only the first of several.
bool HashTable::is_only(std::string_view key, uint32_t bucket) const {
  Cursor others(source());
  others.start(bucket);
  int count = 0;
  while (count < 2 && others.next() == Cursor::record) count += others.key() == key ? 1 : 0;
  return count < 2;
}

void HashTable::each_sound(const Visitor &visit, const Fault &fault, const Linked &linked) const {
  int64_t count = 0;
  BucketReader reader(*this);
  std::vector<uint32_t> hashes;  // of the keys of the bucket
  const auto take = [&](uint32_t bucket) {
    const uint32_t hash = hash_of(reader.key());
    const bool is_suspect = std::find(hashes.begin(), hashes.end(), hash) != hashes.end();
    hashes.push_back(hash);
    if (bucket_of(header(), hash) != bucket)
      fault(reader.key(), reader.value(), "it is not found by its key");
    else if (is_suspect && !is_only(reader.key(), bucket))
      fault(reader.key(), reader.value(), "it is there twice");
    else
      visit(reader.key(), reader.value());
  };
  for (uint32_t bucket = 0, end = buckets(); bucket < end; ++bucket) {
    hashes.clear();
    reader.start(bucket);
    for (; read_next(reader, fault); ++count) take(bucket);
    if (linked) linked(reader.overflow());
  }
  // The count of the hash library may be too low, even below zero. A file of ours with fewer records is truncated.
  if (trailer() && count < static_cast<int32_t>(header().records))
    fault({}, {},
          "records are missing in " + path() + ": of " + std::to_string(header().records) + " there are " +
              std::to_string(count));
}

BucketReader::BucketReader(const HashTable &table) : table_(table), cursor_(table.source()) {
  cursor_.watch([](void *pages, uint16_t address) { static_cast<std::vector<uint16_t> *>(pages)->push_back(address); },
                &overflow_);
}

void BucketReader::start(uint32_t bucket) {
  overflow_.clear();
  cursor_.start(bucket);
}

bool BucketReader::next() {
  const Cursor::Result result = cursor_.next();
  if (result == Cursor::damaged) throw Failure("damaged page in " + table_.path());
  return result == Cursor::record;
}

}  // namespace rdm::catalog
