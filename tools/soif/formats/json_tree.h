// SPDX-License-Identifier: MIT
/// JSON values in memory. The only place that needs the JSON library.
#ifndef SOIF_FORMATS_JSON_TREE_H
#define SOIF_FORMATS_JSON_TREE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace rdm::soif_tool {

/// JsonValue is a JSON value. Numbers and truth values are texts, as they are written. The members of an object are in
/// their order, and may have the same name.
struct JsonValue {
  enum class Kind { null, text, list, object };
  Kind kind = Kind::null;
  std::string text;                // of a text, in UTF-8
  std::vector<JsonValue> items;    // of a list or an object
  std::vector<std::string> names;  // of the items of an object

  bool is(Kind other) const { return kind == other; }
  /// member returns the first member of a name, or null.
  const JsonValue *member(std::string_view name) const;
};

/// JsonFault is a reason why a text is not JSON, and the number of bytes before the place.
struct JsonFault {
  std::string reason;
  size_t offset;
};

/// parse_json returns the value that a text consists of. It refuses values that are nested more than 8 deep.
std::variant<JsonValue, JsonFault> parse_json(std::string_view text);

}  // namespace rdm::soif_tool

#endif
