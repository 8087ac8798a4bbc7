// SPDX-License-Identifier: MIT
/// The mapping, filled by the loader and read by the translations.
#ifndef SERVICE_SCHEMA_MAPPING_H
#define SERVICE_SCHEMA_MAPPING_H

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "service/schema.h"

namespace rdm::schema {

constexpr int32_t table_size = 256;
constexpr size_t name_size = 128;

/// Entry maps one attribute. The first entry without an attribute ends the table.
struct Entry {
  char *tblcol;
  char *soif_attribute;
  int32_t data_type;
  int32_t is_internal;
};

extern Entry tc2soif[table_size];
extern char _schema_name[name_size];
/// System tables in the order of their first entry; a null ends them.
extern char *_schema_systables[table_size];
/// The root table, and whether an SDL has named one (the name may be empty). Never cleared: it is kept by later loads.
extern char _schema_root_table[SCHEMA_TEXT_SIZE];
extern bool _schema_has_root_table;

/// clear releases everything except the root table.
void clear() noexcept;

std::span<const Entry> entries() noexcept;
std::span<char *const> system_tables() noexcept;

/// schema_systables_insert adds the system table of a "table.column" text unless it is listed. Returns false if
/// allocation fails.
bool schema_systables_insert(const char *tblcol) noexcept;

/// schema_systable_hit returns the index of the system table of a "table.column" text, or -1.
int32_t schema_systable_hit(const char *tblcol) noexcept;

/// BoundedString is a text of at most 8191 bytes.
class BoundedString {
 public:
  void clear() noexcept { text_[length_ = 0] = '\0'; }
  bool empty() const noexcept { return length_ == 0; }
  char *text() noexcept { return text_; }

  /// append returns false, and does not change the text, if the piece does not fit.
  bool append(std::string_view piece) noexcept {
    if (piece.size() >= sizeof text_ - length_) return false;
    length_ += piece.copy(text_ + length_, piece.size());
    text_[length_] = '\0';
    return true;
  }

 private:
  char text_[8192] = {};
  size_t length_ = 0;
};

}  // namespace rdm::schema

#endif
