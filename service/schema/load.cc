// SPDX-License-Identifier: MIT
#include <utility>

#include <libcs/log.h>

#include "libcs/guard.h"
#include "qxapi/ascii.h"
#include "service/schema/mapping.h"
#include "service/text.h"

using namespace rdm;

namespace {

using namespace rdm::schema;

struct DataType {
  const char *name;
  int32_t code;
};

constexpr DataType data_types[] = {{"int", SCHEMA_INT},       {"serial", SCHEMA_SERIAL}, {"date", SCHEMA_DATE},
                                   {"string", SCHEMA_STRING}, {"float", SCHEMA_FLOAT},   {"blob", SCHEMA_BLOB}};

int32_t data_type_of(const char *text) {
  if (text == nullptr) return SCHEMA_STRING;
  while (ascii::is_space(*text)) ++text;
  for (const DataType &type : data_types)
    if (ascii::iequals(type.name, text)) return type.code;
  return SCHEMA_UNKNOWN;
}

/// Group is the group of attributes with one number in a schema object; it maps one SOIF attribute.
class Group {
 public:
  Group(const SOIF *object, int32_t number) noexcept : object_(object), number_(number) {}

  const char *value(const char *name) const noexcept {
    char numbered[64];
    host_format(numbered, sizeof numbered, "%s-%d", name, number_);
    return soif_findval(object_, numbered);
  }

 private:
  const SOIF *object_;
  int32_t number_;
};

/// The texts of an entry, borrowed from its group.
struct Names {
  const char *attribute;
  const char *table;
  const char *column;
};

/// read_names returns true if a group has all its names and none is too long.
bool read_names(const Group &group, Names &names) {
  names.table = group.value("system-table-name");
  names.column = group.value("system-column-name");
  if (names.table == nullptr) {
    CSLOG(CSLOG_WARNING, "schema", "No System-Table-Name associated with SOIF-Attribute %s?\n", names.attribute);
  } else if (names.column == nullptr) {
    CSLOG(CSLOG_WARNING, "schema", "No System-Column-Name associated with SOIF-Attribute %s?\n", names.attribute);
  } else if (std::strlen(names.attribute) >= SCHEMA_TEXT_SIZE ||
             std::strlen(names.table) + 1 + std::strlen(names.column) >= SCHEMA_TEXT_SIZE) {
    CSLOG(CSLOG_WARNING, "schema", "Names too long for SOIF-Attribute %.64s?\n", names.attribute);
  } else {
    return true;
  }
  return false;
}

void note_root_table(const Names &names) {
  if (_schema_has_root_table || std::strcmp(names.column, "id") != 0) return;
  host_format(_schema_root_table, sizeof _schema_root_table, "%s", names.table);
  _schema_has_root_table = true;
}

/// fill sets an entry from a group. Returns false if allocation fails.
bool fill(Entry &entry, const Group &group, const Names &names) {
  char tblcol[SCHEMA_TEXT_SIZE];
  host_format(tblcol, sizeof tblcol, "%s.%s", names.table, names.column);
  const char *is_internal = group.value("is-internal");
  HostText attribute(host_strdup(names.attribute)), table_column(host_strdup(tblcol));
  if (!attribute || !table_column) return false;
  entry.soif_attribute = attribute.release();
  entry.tblcol = table_column.release();
  entry.data_type = data_type_of(group.value("data-type"));
  entry.is_internal = is_internal != nullptr && ascii::to_int32(is_internal) != 0 ? 1 : 0;
  return schema_systables_insert(entry.tblcol);
}

/// load_groups fills the table from the groups 1, 2, ... up to the first missing number. Returns false if allocation
/// fails.
bool load_groups(const SOIF *object) {
  Entry *entry = std::begin(tc2soif);
  for (int32_t number = 1; entry != std::end(tc2soif); ++number) {
    const Group group(object, number);
    Names names{group.value("soif-attribute"), nullptr, nullptr};
    if (names.attribute == nullptr) break;
    if (!read_names(group, names)) continue;
    if (!fill(*entry++, group, names)) return false;
    note_root_table(names);
  }
  return true;
}

SoifPtr read_schema(FILE *file) {
  SoifReader reader(file);
  SoifPtr object = reader.next();
  return object && ascii::iequals(object->template_name, "RDMHEADER") ? reader.next() : std::move(object);
}

}  // namespace

int schema_translate_init(const char *path) noexcept {
  const StdioPtr file = open_stdio(path);
  clear();
  if (!file) {
    CSLOG(CSLOG_ERROR, "schema", "Cannot initialize schema translator: %s\n", shown(path));
    return -1;
  }
  const SoifPtr object = read_schema(file.get());
  if (!object) {
    CSLOG(CSLOG_ERROR, "schema", "Invalid SDL? %s\n", path);
    return -1;
  }
  if (const char *name = soif_findval(object.get(), "schema-name"))
    host_format(_schema_name, sizeof _schema_name, "%s", name);
  if (load_groups(object.get())) return 0;
  CSLOG(CSLOG_ERROR, "schema", "Cannot keep schema: %s: Out of memory\n", path);
  clear();
  return -1;
}

void schema_translate_terminate() noexcept {}

char *schema_name() noexcept { return _schema_name; }
