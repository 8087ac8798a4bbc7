// SPDX-License-Identifier: MIT
#include "tools/rdmctl/validation.h"

#include <algorithm>
#include <charconv>

#include <libcs/cs.h>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "qxapi/ascii.h"
#include "qxapi/words.h"
#include "service/schema.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

constexpr size_t shown_bytes = 60;

bool is_mapped(const std::string &name) {
  char text[SCHEMA_TEXT_SIZE];
  return schema_translate_soifattribute(name.c_str(), text) != nullptr;
}

/// mapped_name returns the name in the schema: the attribute's own, or for "author-2" also "author". It is empty if the
/// schema has neither.
std::string mapped_name(const std::string &name) {
  if (is_mapped(name)) return name;
  const size_t digits = name.find_last_not_of("0123456789");
  const bool is_instance = digits != std::string::npos && digits + 1 < name.size() && name[digits] == '-';
  const std::string base = is_instance ? name.substr(0, digits) : "";
  return !base.empty() && is_mapped(base) ? base : "";
}

template <typename Number>
bool is_number(std::string_view text) {
  Number number{};
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool is_date(std::string_view text) {
  const std::string words(text);
  time_t time = 0;
  return words.find('\0') == std::string::npos && cs_str2time(words.c_str(), &time) != 0;
}

/// wanted returns the words for the type that a value should have and has not; null if it has the type.
const char *wanted(int32_t type, std::string_view value) {
  const std::string_view text = trim(value, " \t\r\n");
  switch (type) {
    case SCHEMA_INT:
    case SCHEMA_SERIAL:
      return is_number<int64_t>(text) ? nullptr : "an integer";
    case SCHEMA_FLOAT:
      return is_number<double>(text) ? nullptr : "a number";
    case SCHEMA_DATE:
      return is_date(text) ? nullptr : "a date";
    default:
      return nullptr;
  }
}

/// fault_of returns what is wrong with an attribute; empty if nothing is.
std::string fault_of(const std::string &name, std::string_view value) {
  const std::string mapped = mapped_name(name);
  if (mapped.empty())
    return name.starts_with("rd-") ? "" : "the schema has no attribute " + catalog::printable(name, shown_bytes);
  if (value.empty()) return "";  // is not stored
  const char *type = wanted(schema_translate_soifattr2datatype(mapped.c_str()), value);
  if (type == nullptr) return "";
  return name + " is not " + type + ": " + catalog::printable(std::string(value), shown_bytes);
}

}  // namespace

Validator::Validator(const std::string &schema, const std::string &taxonomy) : has_schema_(!schema.empty()) {
  if (has_schema_) catalog::require_regular(schema);
  if (has_schema_ && schema_translate_init(schema.c_str()) != 0) throw Failure("not a schema description: " + schema);
  if (!taxonomy.empty()) classes_.emplace(taxonomy);
}

std::vector<std::string> Validator::faults(const catalog::ObjectView &description) const {
  std::vector<std::string> faults;
  const auto add = [&](std::string fault) {
    if (!fault.empty()) faults.push_back(std::move(fault));
  };
  if (has_schema_)
    description.each([&](std::string_view name, std::string_view value) { add(fault_of(std::string(name), value)); });
  if (classes_)
    each_class_of(description, [&](const std::string &id) {
      if (!classes_->has(id)) add("the taxonomy has no class " + catalog::printable(id, shown_bytes));
    });
  return faults;
}

}  // namespace rdm::rdmctl
