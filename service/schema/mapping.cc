// SPDX-License-Identifier: MIT
#include "service/schema/mapping.h"

#include "qxapi/guard.h"

namespace rdm::schema {

Entry tc2soif[table_size];
char _schema_name[name_size];
char *_schema_systables[table_size];
char _schema_root_table[SCHEMA_TEXT_SIZE];
bool _schema_has_root_table;

namespace {

std::string_view table_of(std::string_view tblcol) { return tblcol.substr(0, tblcol.find('.')); }

}  // namespace

void clear() noexcept {
  for (Entry &entry : tc2soif) {
    host_free(entry.tblcol);
    host_free(entry.soif_attribute);
    entry = Entry{};
  }
  for (char *&table : _schema_systables) {
    host_free(table);
    table = nullptr;
  }
  _schema_name[0] = '\0';
}

std::span<const Entry> entries() noexcept {
  const auto is_free = [](const Entry &entry) { return entry.soif_attribute == nullptr; };
  return {tc2soif, std::find_if(std::begin(tc2soif), std::end(tc2soif), is_free)};
}

std::span<char *const> system_tables() noexcept {
  return {_schema_systables, std::find(std::begin(_schema_systables), std::end(_schema_systables), nullptr)};
}

int32_t schema_systable_hit(const char *tblcol) noexcept {
  const auto tables = system_tables();
  const auto found = std::find(tables.begin(), tables.end(), table_of(tblcol));
  return found != tables.end() ? static_cast<int32_t>(found - tables.begin()) : -1;
}

bool schema_systables_insert(const char *tblcol) noexcept {
  if (schema_systable_hit(tblcol) != -1) return true;
  HostText table = copy_text(table_of(tblcol));
  if (!table) return false;
  // It fits: there are no more tables than entries.
  _schema_systables[system_tables().size()] = table.release();
  return true;
}

}  // namespace rdm::schema
