// SPDX-License-Identifier: MIT
#include "catalog/record.h"

#include <algorithm>
#include <cstring>

#include <libcs/cs.h>

#include "libcs/soif/grammar.h"
#include "libcs/soif/input.h"
#include "qxapi/ascii.h"
#include "qxapi/hex.h"
#include "qxapi/number.h"

namespace rdm::catalog {
namespace {

constexpr char last_changed[] = "rd-last-changed";

int append_to(void *text, const void *bytes, int32_t size) {
  static_cast<std::string *>(text)->append(static_cast<const char *>(bytes), static_cast<size_t>(size));
  return 0;
}

time_t time_in(const char *text) {
  time_t time = 0;
  cs_str2time(text, &time);
  return time;
}

/// OutlineReader reads an object as the parser does, but keeps none of it. The inputs of the grammar need no buffer for
/// tokens of a string.
class OutlineReader {
 public:
  OutlineReader(soif_stream &slot, LastTime &last_time) : input_(slot), last_time_(last_time) {}

  bool read() { return input_.skip_past('@') && header() && attributes(); }
  const Outline &outline() const { return outline_; }

 private:
  bool header() {
    const auto url = soif::read_template_name(input_, nullptr) ? soif::read_url(input_, nullptr) : std::nullopt;
    if (url) outline_.url = soif::up_to_nul(*url);
    if (outline_.url.empty()) outline_.url = "-";
    return url.has_value();
  }
  bool attributes() {
    for (;;) {
      const int c = soif::read_past(input_, soif::is_space);
      if (c == soif::end_of_input || c == '}') return true;
      input_.back_up(c);
      if (!attribute()) return false;
    }
  }
  bool attribute() {
    const auto name = soif::read_attribute_name(input_, nullptr);
    const auto digits = name ? soif::read_size(input_, nullptr) : std::nullopt;
    const int32_t size = digits ? soif::size_of(*digits) : -1;
    if (size < 0 || size > soif::largest_value || !soif::read_size_end(input_)) return false;
    if (!input_.may_hold(static_cast<size_t>(size))) return false;
    if (!has_time_ && ascii::iequals(soif::up_to_nul(*name), last_changed)) take_time(static_cast<size_t>(size));
    input_.skip(static_cast<size_t>(size));
    return true;
  }
  /// take_time takes the value that the parser would make, which may end past the end of the text.
  void take_time(size_t size) {
    std::string text(input_.rest().substr(0, size));
    text.resize(size, '\xFF');
    outline_.change_time = last_time_.of(text);
    has_time_ = true;
  }

  soif::StringInput input_;
  LastTime &last_time_;
  Outline outline_;
  bool has_time_ = false;
};

}  // namespace

std::string database_key(uint32_t number) {
  std::string key(database_key_size, '0');
  for (size_t at = key.size(); number != 0; number >>= 4) key[--at] = hex::digits[number & 0xF];
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
  const std::optional<Outline> outline = outline_of(record);
  return outline ? std::optional<std::string>(outline->url) : std::nullopt;
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

time_t LastTime::of(const std::string &text) {
  if (text != text_) {
    text_ = text;
    time_ = time_in(text.c_str());
  }
  return time_;
}

std::optional<Outline> outline_of(std::string_view record) {
  LastTime last_time;
  return outline_of(record, last_time);
}

std::optional<Outline> outline_of(std::string_view record, LastTime &last_time) {
  soif_stream slot{};
  slot.input_string = record.data();
  slot.input_length = static_cast<int32_t>(record.size());
  OutlineReader reader(slot, last_time);
  return reader.read() ? std::optional(reader.outline()) : std::nullopt;
}

std::string attribute_head(std::string_view name, size_t size) {
  return std::string(name) + '{' + std::to_string(size) + std::string(soif::size_end);
}

std::string date_of(time_t time) {
  char text[64];
  const int size = cs_time2str(time, text, sizeof text);
  return {text, static_cast<size_t>(size)};
}

Undated print_undated(ObjectView &object) {
  static const std::string placeholder = date_of(0);
  object.erase(last_changed);
  object.append(last_changed, placeholder);
  size_t place = 0;
  std::string record = object.print(&place);
  return {std::move(record), static_cast<uint32_t>(place)};
}

bool is_version_of(std::string_view record, const Undated &undated) {
  const std::string_view other = undated.record;
  const size_t date = undated.date_offset;
  if (record.size() == other.size() && record.substr(0, date) == other.substr(0, date) &&
      record.substr(date + date_size) == other.substr(date + date_size))
    return true;
  std::optional<ObjectView> object = ObjectView::read(record);
  return object && print_undated(*object).record == other;
}

time_t time_of(const SOIF *object, const char *attribute) {
  const char *text = soif_findval(object, attribute);
  return text != nullptr ? time_in(text) : 0;
}

time_t change_time(const SOIF *object) { return time_of(object, last_changed); }

time_t change_time(const ObjectView &object) {
  const auto text = object.find(last_changed);
  return text ? time_in(std::string(*text).c_str()) : 0;
}

}  // namespace rdm::catalog
