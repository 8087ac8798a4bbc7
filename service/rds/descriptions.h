// SPDX-License-Identifier: MIT
/// Printing the descriptions of an answer.
#ifndef SERVICE_RDS_DESCRIPTIONS_H
#define SERVICE_RDS_DESCRIPTIONS_H

#include "dba/dba.h"
#include "libcs/guard.h"
#include "libcs/soif/canonical.h"

namespace rdm {

/// The parameter of a catalog service that names its database, also in diagnostics.
inline constexpr char catalog_key[] = "catalog-database";

/// Characters of a database key.
constexpr size_t key_size = 8;

/// has_room returns true if `size` more bytes after `length` bytes of descriptions, and the answer's header, fit the
/// 32-bit length of an answer.
constexpr bool has_room(uint64_t length, uint64_t size) noexcept {
  constexpr uint64_t header = 4096;  // bytes of the answer's header, at most
  return length + header + size <= UINT32_MAX;
}

/// Descriptions prints records of one database, and reports those that it cannot print to the diagnostic log.
class Descriptions {
 public:
  /// `database` and `output` are borrowed. `attributes` is a null-terminated list of the names to print; null or empty:
  /// all.
  Descriptions(DB *database, char **attributes, csio *output) noexcept
      : database_(database),
        attributes_(attributes != nullptr && attributes[0] != nullptr ? attributes : nullptr),
        output_(output) {}

  /// print parses the record of a key, a text of at least key_size characters, and prints the object. Returns true if
  /// it did.
  bool print(const char *key) const noexcept;

  /// count_elsewhere sets the number of bytes of the answer that are not in the output, for the test of its room.
  void count_elsewhere(uint64_t bytes) noexcept { elsewhere_ = bytes; }

 private:
  friend class QuickDescriptions;
  bool read_record(const char *key, DBT &record) const noexcept;
  bool print(const char *key, const DBT &record) const noexcept;
  bool has_room(const SOIF *object, const DBT &record) const noexcept;
  uint64_t length() const noexcept { return elsewhere_ + output_->length; }

  DB *database_;
  char **attributes_;
  csio *output_;
  uint64_t elsewhere_ = 0;
};

/// QuickDescriptions does the same, but copies the bytes of records that are in the form of the printer.
class QuickDescriptions {
 public:
  QuickDescriptions(DB *database, char **attributes, csio *output) noexcept
      : descriptions_(database, attributes, output), canonical_(descriptions_.attributes_) {}

  /// print prints the record of a number. Returns true if it did.
  bool print(uint32_t number) noexcept;

  /// count_elsewhere does what that of Descriptions does.
  void count_elsewhere(uint64_t bytes) noexcept { descriptions_.count_elsewhere(bytes); }

 private:
  bool copy_pieces(const char *key) const noexcept;

  Descriptions descriptions_;
  soif::Canonical canonical_;
  soif::Pieces pieces_;
};

}  // namespace rdm

#endif
