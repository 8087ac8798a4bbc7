// SPDX-License-Identifier: MIT
#include <algorithm>

#include "qxapi/ascii.h"
#include "tools/soif/base64.h"
#include "tools/soif/formats/json.h"
#include "tools/soif/formats/json_tree.h"

namespace rdm::soif_tool {
namespace {

using Kind = JsonValue::Kind;

/// Misfit is the reason why a JSON value is no description.
struct Misfit {
  std::string reason;
};

/// own_member returns the member of a description with a name, or null. Throws a Misfit if there are two.
const JsonValue *own_member(const JsonValue &object, const std::string &name) {
  if (std::count(object.names.begin(), object.names.end(), name) > 1) throw Misfit{"\"" + name + "\" twice"};
  return object.member(name);
}

/// text_of returns the text that a value stands for. Throws a Misfit.
std::string text_of(const JsonValue &value, const std::string &what) {
  if (value.is(Kind::text)) return value.text;
  const JsonValue *const encoded = value.items.size() == 1 ? value.member("base64") : nullptr;
  if (encoded == nullptr || !encoded->is(Kind::text)) throw Misfit{what + " is not a text"};
  std::optional<std::string> bytes = bytes_of_base64(encoded->text);
  if (!bytes) throw Misfit{what + " is not base64"};
  return std::move(*bytes);
}

/// Shape turns JSON values into descriptions.
class Shape {
 public:
  explicit Shape(const Conversion &conversion) : conversion_(conversion) {}

  Description description_of(const JsonValue &value) const {
    if (!value.is(Kind::object)) throw Misfit{"not an object"};
    const JsonValue *const attributes = own_member(value, "attributes");
    Description description{member_text(value, template_name).value_or(conversion_.template_name),
                            member_text(value, url_name).value_or(""),
                            {}};
    if (attributes == nullptr)
      add_object(description, value, true);
    else if (attributes->is(Kind::object))
      add_object(description, *attributes, false);
    else if (attributes->is(Kind::list))
      for (const JsonValue &pair : attributes->items) add_pair(description, pair);
    else
      throw Misfit{"\"attributes\" is neither an object nor a list"};
    return description;
  }

 private:
  std::optional<std::string> member_text(const JsonValue &object, const char *which) const {
    const std::string key = conversion_.map.field_of(which);
    const JsonValue *const member = own_member(object, key);
    if (member == nullptr || member->is(Kind::null)) return std::nullopt;
    return text_of(*member, "\"" + key + "\"");
  }

  void add_object(Description &description, const JsonValue &object, bool is_flat) const {
    const std::string own[] = {conversion_.map.field_of(url_name), conversion_.map.field_of(template_name)};
    for (size_t i = 0; i < object.items.size(); ++i)
      if (!is_flat || std::find(std::begin(own), std::end(own), object.names[i]) == std::end(own))
        add_member(description, object.names[i], object.items[i]);
  }

  void add_member(Description &description, const std::string &key, const JsonValue &value) const {
    const std::string name = conversion_.map.attribute_of(key);
    if (!value.is(Kind::list)) return add(description, name, value, key);
    for (size_t i = 0; i < value.items.size(); ++i)
      add(description, name + "-" + std::to_string(i + 1), value.items[i], key);
  }

  void add_pair(Description &description, const JsonValue &pair) const {
    const JsonValue *const name = pair.member("name"), *const value = pair.member("value");
    if (name == nullptr || value == nullptr) throw Misfit{R"(an attribute without "name" or "value")"};
    const std::string key = text_of(*name, "the name of an attribute");
    add(description, conversion_.map.attribute_of(key), *value, key);
  }

  static void add(Description &description, const std::string &name, const JsonValue &value, const std::string &key) {
    if (!value.is(Kind::null)) description.attributes.push_back({name, text_of(value, "\"" + key + "\"")});
  }

  const Conversion &conversion_;
};

/// place_after returns the place after a text that begins at a place.
Place place_after(const Place &place, std::string_view text) {
  const size_t newline = text.rfind('\n');
  if (newline == std::string_view::npos) return {place.line, place.column + static_cast<int64_t>(text.size())};
  return {place.line + std::count(text.begin(), text.end(), '\n'), static_cast<int64_t>(text.size() - newline)};
}

/// take passes the description in a text to the taker.
void take(const Shape &shape, Taker &taker, const Place &place, const std::string &text) {
  const auto parsed = parse_json(text);
  if (const auto *fault = std::get_if<JsonFault>(&parsed)) {
    const std::string_view before = std::string_view(text).substr(0, fault->offset);
    return taker.reject(place_after(place, before), fault->reason, text + "\n");
  }
  try {
    Description description = shape.description_of(std::get<JsonValue>(parsed));
    taker.take(description, place, text + "\n");
  } catch (const Misfit &misfit) {
    taker.reject(place, misfit.reason, text + "\n");
  }
}

/// Splitter finds the descriptions in a text without parsing them, so that only one has to be in memory and a damaged
/// one costs no other.
class Splitter {
 public:
  explicit Splitter(ByteSource &source) : source_(source) {}

  /// next reads the text of the next value. Returns false at the end.
  bool next(std::string &text, Place &place) {
    skip_between();
    place = {source_.line(), source_.column()};
    text.clear();
    if (source_.peek() == ByteSource::end) return false;
    do text += static_cast<char>(pass());
    while (!is_whole(text.back()));
    return true;
  }
  /// is_cut returns true if the input has ended within an array.
  bool is_cut() const { return is_in_array_; }

 private:
  /// skip_between skips white space, commas, and the brackets of an array around the values.
  void skip_between() {
    for (int c = source_.peek(); c != ByteSource::end; c = source_.peek()) {
      const bool opens = c == '[' && !is_in_array_, closes = c == ']' && is_in_array_;
      if (opens || closes) is_in_array_ = opens;
      if (!opens && !closes && !ascii::is_space(c) && !(c == ',' && is_in_array_)) return;
      source_.next();
    }
  }

  /// pass passes a byte of a value and keeps track of strings and brackets.
  int pass() {
    const int c = source_.next();
    source_.require_room(++size_, source_.line());
    if (is_escaped_) {
      is_escaped_ = false;
    } else if (is_in_string_) {
      is_in_string_ = c != '"';
      is_escaped_ = c == '\\';
    } else {
      is_in_string_ = c == '"';
      if (c == '{' || c == '[') ++depth_;
      if ((c == '}' || c == ']') && depth_ > 0) --depth_;
    }
    return c;
  }

  /// is_whole returns true if a value ends with its last byte.
  bool is_whole(char last) {
    const int c = source_.peek();
    const bool was_bracket = last == '}' || last == ']' || last == '"';
    // No string contains a newline: one that is not closed costs the rest of its line, not all that follows.
    const bool is_broken = is_in_string_ && last == '\n';
    const bool ends = c == ByteSource::end || is_broken ||
                      (depth_ == 0 && !is_in_string_ && (was_bracket || c == '\n' || c == ',' || c == ']'));
    if (ends) size_ = 0, depth_ = 0, is_in_string_ = is_escaped_ = false;
    return ends;
  }

  ByteSource &source_;
  bool is_in_array_ = false, is_in_string_ = false, is_escaped_ = false;
  int64_t depth_ = 0;
  size_t size_ = 0;
};

}  // namespace

void read_json(ByteSource &source, const Conversion &conversion, Taker &taker) {
  const Shape shape(conversion);
  Splitter splitter(source);
  std::string text;
  Place place;
  while (splitter.next(text, place)) take(shape, taker, place, text);
  if (splitter.is_cut()) taker.reject(place, "the input ends within the array", "");
}

void read_ndjson(ByteSource &source, const Conversion &conversion, Taker &taker) {
  const Shape shape(conversion);
  std::string text;
  for (int64_t line = source.line(); source.peek() != ByteSource::end; line = source.line()) {
    text.clear();
    for (int c = source.next(); c != ByteSource::end && c != '\n'; c = source.next()) {
      text += static_cast<char>(c);
      source.require_room(text.size(), line);
    }
    if (text.find_first_not_of(" \t\r") != std::string::npos) take(shape, taker, {line, 1}, text);
  }
}

}  // namespace rdm::soif_tool
