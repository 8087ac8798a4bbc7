// SPDX-License-Identifier: MIT
#include "tools/soif/formats/dublin_core.h"

#include <algorithm>

namespace rdm::soif_tool {
namespace {

constexpr std::string_view elements[] = {"title",       "creator",  "subject",  "description", "publisher",
                                         "contributor", "date",     "type",     "format",      "identifier",
                                         "source",      "language", "relation", "coverage",    "rights"};

}  // namespace

bool is_dublin_core(std::string_view element) {
  return std::find(std::begin(elements), std::end(elements), element) != std::end(elements);
}

NameMap dublin_core_map(const NameMap &changes) {
  NameMap map;
  map.add("author", "creator");
  map.add("keywords", "subject");
  map.add("content-type", "format");
  map.add("last-modified", "date");
  map.add(url_name, "identifier");
  map.add_all(changes);
  return map;
}

}  // namespace rdm::soif_tool
