// SPDX-License-Identifier: MIT
#include <initializer_list>

#include <libcs/log.h>

#include "qxapi/fatal.h"
#include "qxapi/guard.h"
#include "service/schema/mapping.h"

using namespace rdm;

namespace {

using namespace rdm::schema;

/// The column of other tables that refers to the root table's id.
constexpr char _schema_rootid_column[] = "docid";

BoundedString join_clause;

/// mark_hits counts the items of a list for each system table. Returns false if allocation fails.
bool mark_hits(const char *list, int32_t (&hits)[table_size]) {
  const HostText items(host_strdup(list));
  if (!items) return false;
  char *rest = nullptr;
  for (char *item = strtok_r(items.get(), ",", &rest); item != nullptr; item = strtok_r(nullptr, ",", &rest))
    if (const int32_t hit = schema_systable_hit(item); hit != -1) ++hits[hit];
  return true;
}

bool append_all(std::initializer_list<std::string_view> pieces) {
  return std::all_of(pieces.begin(), pieces.end(), [](std::string_view piece) { return join_clause.append(piece); });
}

}  // namespace

int32_t schema_systables(const char *tblcols, char ***out) noexcept {
  *out = nullptr;
  int32_t hits[table_size] = {};
  if (tblcols != nullptr && !mark_hits(tblcols, hits)) return 0;
  HostPtr<char *> tables = host_new<char *>(table_size);
  if (!tables) return 0;
  int32_t count = 0;
  for (size_t i = 0; i < system_tables().size(); ++i)
    if (tblcols == nullptr || hits[i] > 0) tables.get()[count++] = _schema_systables[i];
  *out = tables.release();
  return count;
}

char *schema_translate_alljoin(const char *tblcols) noexcept {
  char **array = nullptr;
  const int32_t count = schema_systables(tblcols, &array);
  const HostPtr<char *> tables(array);
  if (count == 0) return nullptr;
  QX_REQUIRE(_schema_has_root_table, "schema", "the schema has a root table");
  join_clause.clear();
  for (const std::string_view table : std::span(array, static_cast<size_t>(count)))
    if (table != _schema_root_table &&
        !append_all({" AND ", _schema_root_table, ".id = ", table, ".", _schema_rootid_column, " "})) {
      CSLOG(CSLOG_ERROR, "schema", "Join of %d tables too long\n", count);
      return nullptr;
    }
  return join_clause.text();
}
