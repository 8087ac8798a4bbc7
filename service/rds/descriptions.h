// SPDX-License-Identifier: MIT
/// Printing the descriptions of an answer.
#ifndef SERVICE_RDS_DESCRIPTIONS_H
#define SERVICE_RDS_DESCRIPTIONS_H

#include "dba/dba.h"
#include "libcs/guard.h"

namespace rdm {

/// The parameter of a catalog service that names its database, also in diagnostics.
inline constexpr char catalog_key[] = "catalog-database";

/// Characters of a database key.
constexpr size_t key_size = 8;

/// Descriptions prints records of one database, and reports those that it cannot print to the diagnostic log.
class Descriptions {
 public:
  /// `database` and `output` are borrowed. `attributes` is a null-terminated list of the names to print; null or empty:
  /// all.
  Descriptions(DB *database, char **attributes, csio *output) noexcept
      : database_(database), attributes_(attributes), output_(output) {}

  /// print prints the record of a key, a text of at least key_size characters. Returns true if it did.
  bool print(const char *key) const noexcept;
  /// print prints the record of a number.
  bool print(uint32_t number) const noexcept;

 private:
  bool read_record(const char *key, DBT &record) const noexcept;
  SoifPtr parse(const DBT &record) const noexcept;
  bool has_room(const SOIF *object, const DBT &record) const noexcept;

  DB *database_;
  char **attributes_;
  csio *output_;
};

}  // namespace rdm

#endif
