// SPDX-License-Identifier: MIT
/// Reads any text as a schema description and calls every query of it.

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"
#include "service/schema.h"

using namespace rdm;

namespace {

void ask_about(const char *attribute) {
  char tblcol[SCHEMA_TEXT_SIZE], back[SCHEMA_TEXT_SIZE];
  const bool mapped = schema_translate_soifattribute(attribute, tblcol) != nullptr;
  fuzz::require(mapped, "a listed attribute is not mapped");
  fuzz::require(schema_translate_tblcol(tblcol, back) != nullptr, "a column is not mapped back to its attribute");
  schema_translate_soifattr2datatype(attribute);
}

void ask_for_lists(const char *list) {
  char *tblcols = nullptr, **tables = nullptr;
  schema_translate_soif2rdbms(list, &tblcols);
  const HostText owned(tblcols);
  schema_systables(tblcols, &tables);
  host_free(tables);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text = fuzz::text(data, size);
  if (schema_translate_init(fuzz::MemoryFile(text).path().c_str()) != 0) return 0;
  char **attributes = nullptr;
  int32_t count = 0;
  schema_soifattrs(&attributes, &count);
  for (int32_t i = 0; i < count; ++i) ask_about(attributes[i]);
  std::string list;
  for (int32_t i = 0; i < count; ++i) list.append(attributes[i]).append(",");
  host_free(attributes);
  ask_for_lists(list.c_str());
  ask_for_lists(nullptr);
  return 0;
}
