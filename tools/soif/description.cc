// SPDX-License-Identifier: MIT
#include "tools/soif/description.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "catalog/record.h"
#include "catalog/stream/soif_scan.h"
#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"

namespace rdm::soif_tool {
namespace {

constexpr size_t shown = 60;  // bytes of a name in a message

bool ends_token(char c) { return ascii::is_space(c) || c == '\0'; }

/// fault_of_token returns the reason why a template name or URL cannot be written.
std::string fault_of_token(const std::string &what, std::string_view token) {
  if (token.empty()) return "no " + what;
  if (token.size() >= soif::token_limit) return "the " + what + " has more than 4095 bytes";
  const bool is_split = std::any_of(token.begin(), token.end(), ends_token);
  return is_split ? "the " + what + " contains white space or NUL: " + catalog::printable(token, shown) : "";
}

std::string fault_of_attribute(const Attribute &attribute) {
  const std::string &name = attribute.name;
  if (name.empty()) return "an attribute without a name";
  if (!catalog::is_attribute_name(name) || std::any_of(name.begin(), name.end(), ascii::is_upper))
    return "not the name of an attribute: " + catalog::printable(name, shown);
  if (name.size() >= soif::token_limit)
    return "the name of an attribute has more than 4095 bytes: " + catalog::printable(name, shown);
  return attribute.value.size() > size_t{soif::largest_value}
             ? "the value of " + catalog::printable(name, shown) + " has more than 256 MiB"
             : "";
}

}  // namespace

Description description_of(const catalog::ObjectView &object) {
  Description description{std::string(object.template_name()), std::string(object.url()), {}};
  object.each([&](std::string_view name, std::string_view value) {
    description.attributes.push_back({std::string(name), std::string(value)});
  });
  return description;
}

std::string soif_of(const Description &description) {
  std::string text = "@" + description.template_name + " { " + description.url + "\n";
  for (const auto &[name, value] : description.attributes)
    text.append(catalog::attribute_head(name, value.size())).append(value).append(1, '\n');
  return text + "}\n";
}

std::string fault_of(const Description &description) {
  std::string fault = fault_of_token("template", description.template_name);
  if (fault.empty()) fault = fault_of_token("URL", description.url);
  if (fault.empty() && description.url.front() == '{') fault = "the URL begins with a brace";
  for (const Attribute &attribute : description.attributes)
    if (fault.empty()) fault = fault_of_attribute(attribute);
  return fault;
}

bool is_header(const Description &description) { return ascii::iequals(description.template_name, "RDMHEADER"); }

Instance instance_of(std::string_view name) {
  size_t start = name.size();
  while (start > 0 && ascii::is_digit(name[start - 1])) --start;
  if (start < 2 || start == name.size() || name[start - 1] != '-') return {name, {}};
  return {name.substr(0, start - 1), name.substr(start)};
}

void gather_instances(Description &description) {
  struct Place {
    size_t first;                           // position of the first attribute of this base
    std::pair<size_t, std::string> number;  // its length and digits
    size_t position;
  };
  std::map<std::string_view, size_t> firsts;
  std::vector<Place> places;
  for (size_t i = 0; i < description.attributes.size(); ++i) {
    const auto [base, number] = instance_of(description.attributes[i].name);
    const size_t first = number.empty() ? i : firsts.try_emplace(base, i).first->second;
    places.push_back({first, {number.size(), std::string(number)}, i});
  }
  std::stable_sort(places.begin(), places.end(), [](const Place &a, const Place &b) {
    return std::tie(a.first, a.number) < std::tie(b.first, b.number);
  });
  std::vector<Attribute> gathered;
  gathered.reserve(places.size());
  for (const Place &place : places) gathered.push_back(std::move(description.attributes[place.position]));
  description.attributes = std::move(gathered);
}

}  // namespace rdm::soif_tool
