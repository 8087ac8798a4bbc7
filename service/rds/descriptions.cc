// SPDX-License-Identifier: MIT
#include "service/rds/descriptions.h"

#include <limits>

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

}  // namespace

/// read_record returns true if it has read the record of a key.
bool Descriptions::read_record(const char *key, DBT &record) const noexcept {
  const DBT wanted{const_cast<char *>(key), key_size};
  const int result = dba_get(database_, &wanted, &record);
  if (result == 1) CSLOG(CSLOG_WARNING, "rds", "No entry in %s: key %s\n", catalog_key, key);
  if (result == -1) CSLOG(CSLOG_ERROR, "rds", "Cannot read %s: key %s: %s\n", catalog_key, key, host_last_error_text());
  return result == 0;
}

SoifPtr Descriptions::parse(const DBT &record) const noexcept {
  SoifReader reader(std::string_view(static_cast<const char *>(record.data), record.size));
  if (attributes_ != nullptr && attributes_[0] != nullptr) reader.accept(attributes_);
  return reader.next();
}

/// has_room returns true if the object of a record and the answer's header fit the 32-bit length of the answer. It
/// measures the object only if the estimate does not fit.
bool Descriptions::has_room(const SOIF *object, const DBT &record) const noexcept {
  constexpr uint64_t header = 4096, framing = 32;  // bytes, at most: of the answer's header, and around a value
  const uint64_t taken = output_->length + header, end = std::numeric_limits<uint32_t>::max();
  const auto values = static_cast<uint64_t>(object->value_bytes), count = static_cast<uint64_t>(object->attr_count);
  const uint64_t most = record.size + values + (count + 1) * framing;
  return taken + most <= end || taken + printed_size(object) <= end;
}

bool Descriptions::print(const char *key) const noexcept {
  DBT record{nullptr, 0};
  if (!read_record(key, record)) return false;
  const SoifPtr object = parse(record);
  if (!object) {
    CSLOG(CSLOG_WARNING, "rds", "Malformed RD in %s: key %s\n", catalog_key, key);
    return false;
  }
  if (!has_room(object.get(), record)) {
    CSLOG(CSLOG_ERROR, "rds", "No room in the answer for %s: key %s\n", catalog_key, key);
    return false;
  }
  SoifWriter(output_).print(object.get());
  return true;
}

bool Descriptions::print(uint32_t number) const noexcept {
  char key[key_size + 1];
  host_format(key, sizeof key, "%08x", number);
  return print(key);
}

}  // namespace rdm
