// SPDX-License-Identifier: MIT
#include "catalog/record.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <libcs/cs.h>

#include "libcs/soif/grammar.h"
#include "qxapi/number.h"

namespace rdm::catalog {
namespace {

constexpr char last_changed[] = "rd-last-changed";

int append_to(void *text, const void *bytes, int32_t size) {
  static_cast<std::string *>(text)->append(static_cast<const char *>(bytes), static_cast<size_t>(size));
  return 0;
}

}  // namespace

std::string database_key(uint32_t number) {
  char key[9];
  std::snprintf(key, sizeof key, "%08x", number);
  return key;
}

std::optional<uint32_t> number_of(std::string_view key) {
  const std::optional<uint32_t> number = parse_number<uint32_t>(key, 16);
  return number && database_key(*number) == key ? number : std::nullopt;
}

std::string print(const SOIF *object) {
  std::string text;
  SoifWriter(append_to, &text).print(object);
  return text;
}

SoifPtr parse(std::string_view record) { return SoifReader(record).next(); }

std::optional<std::string> url_of(std::string_view record) {
  char *none[] = {nullptr};
  SoifReader reader(record);
  reader.accept(none);
  const SoifPtr object = reader.next();
  return object ? std::optional<std::string>(object->url) : std::nullopt;
}

SoifPtr parse_only(std::string_view record, std::vector<std::string> names) {
  std::vector<char *> accepted;
  accepted.reserve(names.size() + 1);
  for (std::string &name : names) accepted.push_back(name.data());
  accepted.push_back(nullptr);
  SoifReader reader(record);
  reader.accept(accepted.data());
  return reader.next();
}

std::string content(SOIF *object) {
  while (soif_delete(object, last_changed) == 0) {
  }
  return print(object);
}

std::string attribute_head(std::string_view name, size_t size) {
  return std::string(name) + '{' + std::to_string(size) + std::string(soif::size_end);
}

std::string date_of(time_t time) {
  char text[64];
  const int size = cs_time2str(time, text, sizeof text);
  return {text, static_cast<size_t>(size)};
}

Undated print_undated(SOIF *object, std::string_view content) {
  const std::string none = date_of(0);
  soif_insert(object, last_changed, none.data(), static_cast<int32_t>(none.size()));
  Undated undated{print(object), 0};
  // The texts differ first in the line of "rd-last-changed": no other attribute has this name.
  const auto [at, ignored] =
      std::mismatch(undated.record.begin(), undated.record.end(), content.begin(), content.end());
  const auto line = undated.record.rfind('\n', static_cast<size_t>(at - undated.record.begin()) - 1) + 1;
  undated.date_offset = static_cast<uint32_t>(undated.record.find('\t', line) + 1);
  return undated;
}

time_t time_of(const SOIF *object, const char *attribute) {
  time_t time = 0;
  if (const char *text = soif_findval(object, attribute)) cs_str2time(text, &time);
  return time;
}

time_t change_time(const SOIF *object) { return time_of(object, last_changed); }

}  // namespace rdm::catalog
