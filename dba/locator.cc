// SPDX-License-Identifier: MIT
#include "dba/locator.h"

#include <unistd.h>

#include "qxapi/uninterrupted.h"

namespace rdm {
namespace {

uint32_t bucket_of_key(const hashdb::Header &header, std::string_view key) {
  return hashdb::bucket_of(header, hashdb::default_hash(key.data(), key.size()));
}

}  // namespace

bool Locator::open(host_fd file) noexcept {
  unsigned char bytes[hashdb::header_size];
  const auto got = uninterrupted([&] { return ::pread(file, bytes, sizeof bytes, 0); });
  if (got != static_cast<ssize_t>(sizeof bytes)) return false;
  source_ = {file, host_seek(file, 0, SEEK_END), hashdb::decode(bytes), hashdb::read_by_pread};
  cursor_.emplace(source_);
  return hashdb::is_sound(source_.header, hashdb::default_hash, source_.size);
}

/// place returns the place of the record at which the cursor is.
Location Locator::place() const noexcept {
  const int64_t offset = cursor_->value_offset();
  return offset >= 0 ? Location{offset, static_cast<uint32_t>(cursor_->value().size())} : Location{};
}

Location Locator::find(std::string_view key, std::string_view &value) noexcept {
  value = {};
  if (cursor_->find_newest(bucket_of_key(source_.header, key), key) != hashdb::Cursor::record) return {};
  const Location found = place();
  if (found.size > 0) value = cursor_->value();
  return found;
}

void Locator::walk(Visit visit, void *argument) noexcept {
  for (uint32_t bucket = 0; bucket < buckets(); ++bucket) {
    cursor_->start(bucket, hashdb::Cursor::newest_first);
    while (cursor_->next() == hashdb::Cursor::record) {
      const Location found = place();
      if (found.size > 0 && bucket_of_key(source_.header, cursor_->key()) == bucket)
        visit(argument, cursor_->key(), cursor_->value(), found);
    }
  }
}

bool Locator::read(Location place, char *bytes) const noexcept {
  const auto got = uninterrupted([&] { return ::pread(source_.fd, bytes, place.size, place.offset); });
  return got == static_cast<ssize_t>(place.size);
}

}  // namespace rdm
