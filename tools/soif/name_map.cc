// SPDX-License-Identifier: MIT
#include "tools/soif/name_map.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "catalog/os/error.h"
#include "catalog/stream/soif_scan.h"
#include "qxapi/ascii.h"
#include "qxapi/words.h"
#include "tools/soif/description.h"
#include "tools/soif/json_text.h"

namespace rdm::soif_tool {
namespace {

using catalog::Failure;

constexpr std::string_view blanks = " \t\r";

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), ascii::lower);
  return result;
}

bool is_known_name(const std::string &attribute) {
  return attribute == url_name || attribute == template_name || catalog::is_attribute_name(attribute);
}

}  // namespace

void NameMap::add(const std::string &attribute, const std::string &name) {
  if (const auto old = names_.find(attribute); old != names_.end()) attributes_.erase(old->second);
  if (const auto old = attributes_.find(name); old != attributes_.end()) names_.erase(old->second);
  names_[attribute] = name;
  attributes_[name] = attribute;
}

void NameMap::read_line(const std::string &line, std::map<std::string, int> &seen) {
  const std::string text(trim(line, blanks));
  if (text.empty() || text.front() == '#') return;
  const size_t equals = text.find('=');
  if (equals == std::string::npos) throw Failure("not \"attribute = name\"");
  const std::string attribute = lower(trim(std::string_view(text).substr(0, equals), blanks)),
                    name(trim(std::string_view(text).substr(equals + 1), blanks));
  if (!is_known_name(attribute)) throw Failure("not the name of an attribute: \"" + attribute + "\"");
  if (name.empty()) throw Failure("no name for " + attribute);
  if (!is_utf8(name)) throw Failure("not UTF-8: the name of " + attribute);
  if (seen["a " + attribute]++ > 0) throw Failure(attribute + " has a name already");
  if (seen["n " + name]++ > 0) throw Failure("another attribute has the name " + name);
  add(attribute, name);
}

void NameMap::read(const std::string &path) {
  std::ifstream file(path);
  if (!file) throw catalog::system_failure("cannot read " + path);
  std::map<std::string, int> seen;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) try {
      read_line(line, seen);
    } catch (const Failure &failure) {
      throw Failure(path + ":" + std::to_string(number) + ": " + failure.what());
    }
  if (file.bad()) throw catalog::system_failure("cannot read " + path);
}

std::string NameMap::find(const Names &names, std::string_view name) {
  if (const auto found = names.find(name); found != names.end()) return found->second;
  const auto [base, number] = instance_of(name);
  const auto found = number.empty() ? names.end() : names.find(base);
  return found == names.end() ? std::string(name) : found->second + "-" + std::string(number);
}

std::string NameMap::field_of(const char *which) const {
  const auto found = names_.find(which);
  return found == names_.end() ? which + 1 : found->second;
}

std::string NameMap::attribute_of(std::string_view name) const { return lower(find(attributes_, name)); }

bool NameMap::knows(std::string_view attribute) const {
  return names_.contains(attribute) || names_.contains(instance_of(attribute).base);
}

}  // namespace rdm::soif_tool
