// SPDX-License-Identifier: MIT
#include "service/rds/descriptions.h"

#include <libcs/log.h>

namespace rdm {
namespace {

/// printed_size returns the number of bytes that an object prints as. The size of its record may differ: the record may
/// omit newlines that the printer writes, or end within a value, which the parser then pads.
uint64_t printed_size(const SOIF *object) {
  uint64_t size = 0;
  const auto count = [](void *total, const void *, int32_t length) {
    *static_cast<uint64_t *>(total) += static_cast<uint64_t>(length);
    return length;
  };
  SoifWriter(count, &size).print(object);
  return size;
}

bool report_no_room(const char *key) {
  CSLOG(CSLOG_ERROR, "rds", "No room in the answer for %s: key %s\n", catalog_key, key);
  return false;
}

std::string_view text_of(const DBT &record) { return {static_cast<const char *>(record.data), record.size}; }

}  // namespace

/// read_record returns true if it has read the record of a key.
bool Descriptions::read_record(const char *key, DBT &record) const noexcept {
  const DBT wanted{const_cast<char *>(key), key_size};
  const int result = dba_get(database_, &wanted, &record);
  if (result == 1) CSLOG(CSLOG_WARNING, "rds", "No entry in %s: key %s\n", catalog_key, key);
  if (result == -1) CSLOG(CSLOG_ERROR, "rds", "Cannot read %s: key %s: %s\n", catalog_key, key, host_last_error_text());
  return result == 0;
}

/// has_room measures the object only if an estimate, which is never too low, does not fit.
bool Descriptions::has_room(const SOIF *object, const DBT &record) const noexcept {
  constexpr uint64_t framing = 32;  // bytes, at most, around a value
  const auto values = static_cast<uint64_t>(object->value_bytes), count = static_cast<uint64_t>(object->attr_count);
  return rdm::has_room(length(), record.size + values + (count + 1) * framing) ||
         rdm::has_room(length(), printed_size(object));
}

bool Descriptions::print(const char *key) const noexcept {
  DBT record{nullptr, 0};
  return read_record(key, record) && print(key, record);
}

bool Descriptions::print(const char *key, const DBT &record) const noexcept {
  SoifReader reader(text_of(record));
  reader.accept(attributes_);
  const SoifPtr object = reader.next();
  if (!object) {
    CSLOG(CSLOG_WARNING, "rds", "Malformed RD in %s: key %s\n", catalog_key, key);
    return false;
  }
  if (!has_room(object.get(), record)) return report_no_room(key);
  SoifWriter(output_).print(object.get());
  return true;
}

bool QuickDescriptions::print(uint32_t number) noexcept {
  char key[key_size + 1];
  host_format(key, sizeof key, "%08x", number);
  DBT record{nullptr, 0};
  if (!descriptions_.read_record(key, record)) return false;
  if (!canonical_.printed(text_of(record), pieces_)) return descriptions_.print(key, record);
  return copy_pieces(key);
}

bool QuickDescriptions::copy_pieces(const char *key) const noexcept {
  if (!has_room(descriptions_.length(), pieces_.size())) return report_no_room(key);
  for (const std::string_view piece : pieces_)
    csio_append(descriptions_.output_, piece.data(), static_cast<int32_t>(piece.size()));
  return true;
}

}  // namespace rdm
