// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/os/error.h"
#include "qxapi/guard.h"
#include "qxapi/words.h"
#include "service/schema.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

/// column_of returns the "table.column" of an attribute, or an empty text.
std::string column_of(const std::string &attribute) {
  char text[SCHEMA_TEXT_SIZE];
  return schema_translate_soifattribute(attribute.c_str(), text) != nullptr ? text : "";
}

/// has_root returns true if the schema surely has a root table, one with a column "id". Without one, the translator
/// aborts.
bool has_root() {
  char attribute[SCHEMA_TEXT_SIZE];
  return schema_translate_col("id", attribute) != nullptr && column_of(attribute).ends_with(".id");
}

/// Translation is the result for a list of attributes.
struct Translation {
  std::string columns, join;
  std::vector<std::string> tables, unknown;
};

std::vector<std::string> tables_of(const std::string &columns) {
  char **names = nullptr;
  const int32_t count = schema_systables(columns.c_str(), &names);
  const HostPtr<char *> guard(names);
  return std::vector<std::string>(names, names + count);
}

Translation translation_of(const std::string &list) {
  Translation result;
  for (const std::string_view name : words_of(list, ","))
    if (const std::string attribute(name); column_of(attribute).empty()) result.unknown.push_back(attribute);
  char *columns = nullptr;
  schema_translate_soif2rdbms(list.c_str(), &columns);
  const HostText guard(columns);
  if (columns == nullptr) throw Failure("the list of attributes is too long");
  result.columns = columns;
  if (result.columns.empty()) return result;
  result.tables = tables_of(result.columns);
  if (!has_root()) throw Failure("the schema has no root table, which is the one with a column \"id\"");
  const char *join = schema_translate_alljoin(columns);
  if (join == nullptr) throw Failure("the join clause is too long");
  result.join = join;
  return result;
}

std::string joined(const std::vector<std::string> &words) {
  std::string list;
  for (const std::string &word : words) list += (list.empty() ? "" : ",") + word;
  return list;
}

}  // namespace

int translate(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string file = description_file(options.target, options.config, "schema-description");
  if (schema_translate_init(file.c_str()) != 0) throw Failure("not a schema description: " + file);
  const Translation result = translation_of(joined(options.attributes));
  for (const std::string &name : result.unknown) say(errors, "no column for " + name);
  if (options.json)
    out << text_of({{"columns", result.columns},
                    {"tables", result.tables},
                    {"join", result.join},
                    {"unknown", result.unknown}})
        << '\n';
  else
    out << "columns: " << result.columns << "\ntables: " << joined(result.tables)
        << "\njoin: " << trim(result.join, " ") << '\n';
  return result.unknown.empty() ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
