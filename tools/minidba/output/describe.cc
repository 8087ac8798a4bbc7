// SPDX-License-Identifier: MIT
#include "tools/minidba/output/describe.h"

#include <ostream>
#include <string_view>

#include "qxapi/ascii.h"

namespace rdm::minidba {
namespace {

std::string value_of(const AVPair &pair) { return {pair.value, static_cast<size_t>(pair.vsize)}; }

void add(Json &attributes, const AVPair &pair) {
  const auto known = attributes.find(pair.attribute);
  if (known == attributes.end()) {
    attributes[pair.attribute] = value_of(pair);
    return;
  }
  if (!known->is_array()) *known = Json::array({*known});
  known->push_back(value_of(pair));
}

std::string field_of(std::string_view value) {
  std::string text;
  for (const char c : value) {
    static constexpr std::string_view special = "\t\n\r\\", names = "tnr\\";
    const size_t which = special.find(c);
    if (which == std::string_view::npos) {
      text += c;
    } else {
      text += '\\';
      text += names[which];
    }
  }
  return text;
}

bool is_instance(const std::string &attribute, const AVPair &pair) {
  return ascii::iequals(attribute, pair.attribute) || soif_multivalue_attrcmp(attribute.c_str(), pair.attribute) != 0;
}

}  // namespace

Json json_of(uint32_t number, const SOIF *description) {
  Json attributes = Json::object();
  each_attribute(description, [&](const AVPair &pair) { add(attributes, pair); });
  return {{"number", number},
          {"template", description->template_name},
          {"url", description->url},
          {"attributes", std::move(attributes)}};
}

std::string text_of(const Json &json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

void JsonList::add(const Json &element) {
  out_ << (empty_ ? "[\n" : ",\n") << text_of(element);
  empty_ = false;
}

void JsonList::close() {
  if (wanted_) out_ << (empty_ ? "[]\n" : "\n]\n");
}

std::string tsv_of(uint32_t number, const SOIF *description, const std::vector<std::string> &attributes) {
  std::string line = std::to_string(number) + '\t' + field_of(description->url);
  for (const std::string &attribute : attributes) {
    std::string values;
    each_attribute(description, [&](const AVPair &pair) {
      if (is_instance(attribute, pair)) values += (values.empty() ? "" : "; ") + field_of(value_of(pair));
    });
    line += '\t' + values;
  }
  return line;
}

}  // namespace rdm::minidba
