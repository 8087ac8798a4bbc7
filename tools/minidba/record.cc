#include "tools/minidba/record.h"

#include <charconv>
#include <cstdio>
#include <cstring>

#include <libcs/cs.h>

namespace minidba {
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
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number, 16);
  if (key.size() != 8 || error != std::errc() || database_key(number) != key) return std::nullopt;
  return number;
}

std::string print(const SOIF *object) {
  std::string text;
  soif_writer(append_to, &text).print(object);
  return text;
}

soif_ptr parse(std::string_view record) { return soif_reader(record).next(); }

std::optional<std::string> url_of(std::string_view record) {
  char *none[] = {nullptr};
  soif_reader reader(record);
  reader.accept(none);
  const soif_ptr object = reader.next();
  return object ? std::optional<std::string>(object->url) : std::nullopt;
}

soif_ptr parse_only(std::string_view record, std::vector<std::string> names) {
  std::vector<char *> accepted;
  accepted.reserve(names.size() + 1);
  for (std::string &name : names) accepted.push_back(name.data());
  accepted.push_back(nullptr);
  soif_reader reader(record);
  reader.accept(accepted.data());
  return reader.next();
}

std::string content(SOIF *object) {
  while (soif_delete(object, last_changed) == 0) {
  }
  return print(object);
}

void stamp(SOIF *object, time_t now) {
  char text[64];
  const int size = cs_time2str(now, text, sizeof text);
  while (soif_delete(object, last_changed) == 0) {
  }
  soif_insert(object, last_changed, text, size);
}

time_t time_of(const SOIF *object, const char *attribute) {
  time_t time = 0;
  if (const char *text = soif_findval(object, attribute)) cs_str2time(text, &time);
  return time;
}

time_t change_time(const SOIF *object) { return time_of(object, last_changed); }

}  // namespace minidba
