// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/soif/conversion.h"
#include "tools/soif/formats/dublin_core.h"
#include "tools/soif/formats/json.h"
#include "tools/soif/formats/table.h"

namespace rdm::soif_tool {
namespace {

constexpr Format formats[] = {
    {"json", read_json, json_writer}, {"ndjson", read_ndjson, ndjson_writer}, {"csv", read_csv, csv_writer},
    {"tsv", read_tsv, tsv_writer},    {"dc-xml", read_dc, dc_writer},         {"oai-dc", read_oai, nullptr},
};

}  // namespace

Conversion conversion_of(const Options &options) {
  Conversion conversion;
  if (!options.map.empty()) conversion.map.read(options.map);
  if (!options.template_name.empty()) conversion.template_name = options.template_name;
  conversion.oai_identifiers = options.oai_identifiers;
  return conversion;
}

const Format &format_named(const std::string &name) {
  return *std::find_if(std::begin(formats), std::end(formats),
                       [&](const Format &format) { return format.name == name; });
}

}  // namespace rdm::soif_tool
