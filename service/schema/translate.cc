// SPDX-License-Identifier: MIT
#include <libcs/log.h>

#include "libcs/guard.h"
#include "qxapi/ascii.h"
#include "qxapi/log_text.h"
#include "service/schema/mapping.h"

using namespace rdm;

namespace {

using namespace rdm::schema;

/// attr_cmp returns 0 for a match. A "-" in `wanted` matches a "_" in `stored`, not vice versa: attributes are spelled
/// with hyphens, which columns cannot have.
int attr_cmp(std::string_view wanted, std::string_view stored) {
  const auto same = [](char w, char s) { return ascii::lower(w) == ascii::lower(s) || (w == '-' && s == '_'); };
  return std::equal(wanted.begin(), wanted.end(), stored.begin(), stored.end(), same) ? 0 : 1;
}

std::string_view attribute_of(const Entry &entry) { return entry.soif_attribute; }
std::string_view tblcol_of(const Entry &entry) { return entry.tblcol; }
std::string_view column_of(const Entry &entry) { return tblcol_of(entry).substr(tblcol_of(entry).find('.') + 1); }

/// find returns the first entry whose `part` matches, or null.
const Entry *find(const char *wanted, std::string_view (*part)(const Entry &)) {
  if (wanted == nullptr) return nullptr;
  for (const Entry &entry : entries())
    if (attr_cmp(wanted, part(entry)) == 0) return &entry;
  return nullptr;
}

char *copy_out(char *out, const char *found) {
  host_format(out, SCHEMA_TEXT_SIZE, "%s", found != nullptr ? found : "");
  return found != nullptr ? out : nullptr;
}

char *copy_attribute(char *out, const Entry *found) {
  return copy_out(out, found != nullptr ? found->soif_attribute : nullptr);
}

enum class Outcome { done, too_long, no_memory };

Outcome append_column(const char *attribute, BoundedString &columns) {
  const Entry *entry = find(attribute, attribute_of);
  if (entry == nullptr) {
    CSLOG(CSLOG_WARNING, "schema", "Unknown SOIF-Attribute: '%s'\n", LogText(attribute).c_str());
    return Outcome::done;
  }
  const bool fits = (columns.empty() || columns.append(",")) && columns.append(entry->tblcol);
  return fits ? Outcome::done : Outcome::too_long;
}

/// translate_items appends the columns of a list of attributes, which it splits in place. `seen` stores the names.
Outcome translate_items(char *attributes, cshashtable *seen, BoundedString &columns) {
  Outcome outcome = Outcome::done;
  char *rest = nullptr;
  for (char *name = strtok_r(attributes, ",", &rest); name != nullptr && outcome == Outcome::done;
       name = strtok_r(nullptr, ",", &rest)) {
    if (cshashtable_find(seen, name) != nullptr) continue;
    outcome = cshashtable_insert(seen, name, name) == 0 ? append_column(name, columns) : Outcome::no_memory;
  }
  return outcome;
}

/// make_name_table returns a table of borrowed names, or null if allocation fails.
HashTablePtr make_name_table() {
  cshashtable *table = nullptr;
  cshashtable_create(7, &table);
  cshashtable_set_copy(table, cslist_copy_nop);
  cshashtable_set_free(table, cslist_free_nop);
  return HashTablePtr(table);
}

/// list_public stores a new array with one text of each entry that is not internal.
void list_public(char *Entry::*text, char ***out, int32_t *count) {
  HostPtr<char *> array = host_new<char *>(table_size);
  *count = 0;
  for (const Entry &entry : entries())
    if (array && entry.is_internal == 0) array.get()[(*count)++] = entry.*text;
  *out = array.release();
}

}  // namespace

char *schema_translate_soifattribute(const char *attribute, char *out) noexcept {
  const Entry *entry = find(attribute, attribute_of);
  return copy_out(out, entry != nullptr ? entry->tblcol : nullptr);
}

int32_t schema_translate_soifattr2datatype(const char *attribute) noexcept {
  const Entry *entry = find(attribute, attribute_of);
  return entry != nullptr ? entry->data_type : SCHEMA_UNKNOWN;
}

char *schema_translate_tblcol(const char *tblcol, char *out) noexcept {
  return copy_attribute(out, find(tblcol, tblcol_of));
}

char *schema_translate_col(const char *column, char *out) noexcept {
  return copy_attribute(out, find(column, column_of));
}

char *schema_translate_soif2rdbms(const char *list, char **out) noexcept {
  *out = nullptr;
  BoundedString attributes, columns;
  if (list != nullptr && !attributes.append(list)) {
    CSLOG(CSLOG_ERROR, "schema", "List of SOIF-Attributes too long: %zu bytes\n", std::strlen(list));
    return nullptr;
  }
  const HashTablePtr seen = make_name_table();
  if (!seen) return nullptr;
  const Outcome outcome = translate_items(attributes.text(), seen.get(), columns);
  if (outcome == Outcome::too_long)
    CSLOG(CSLOG_ERROR, "schema", "List of columns too long for SOIF-Attributes: '%.64s'\n", LogText(list).c_str());
  return outcome == Outcome::done ? *out = host_strdup(columns.text()) : nullptr;
}

void schema_soifattrs(char ***out, int32_t *count) noexcept { list_public(&Entry::soif_attribute, out, count); }

void schema_tblcols(char ***out, int32_t *count) noexcept { list_public(&Entry::tblcol, out, count); }
