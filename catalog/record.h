// SPDX-License-Identifier: MIT
/// Records: descriptions as a catalog stores them, SOIF text under a key.
#ifndef CATALOG_RECORD_H
#define CATALOG_RECORD_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/object_view.h"
#include "libcs/guard.h"

namespace rdm::catalog {

/// database_key returns the key of a number: 8 lower-case hexadecimal digits. number_of is its inverse; it returns
/// std::nullopt for a text that database_key does not return.
std::string database_key(uint32_t number);
constexpr uint32_t database_key_size = 8;
std::optional<uint32_t> number_of(std::string_view key);

/// print returns an object as SOIF text.
std::string print(const SOIF *object);
/// parse returns the first object of a text, which belongs to the caller, or null if there is none.
SoifPtr parse(std::string_view record);
/// parse_only keeps only the attributes of these lower-case names and their numbered instances.
SoifPtr parse_only(std::string_view record, std::vector<std::string> names);
/// url_of returns the URL of the first object of a text, or std::nullopt if there is none.
std::optional<std::string> url_of(std::string_view record);

/// Outline is what an index holds of a record.
struct Outline {
  std::string_view url;    // part of the record, or "-"
  time_t change_time = 0;  // change_time of the object
};
/// LastTime parses times of change. It keeps the last: the descriptions of a delivery have the same.
class LastTime {
 public:
  /// of returns the time in a text, in seconds since 1970, or 0 if it cannot be parsed.
  time_t of(const std::string &text);

 private:
  std::string text_;
  time_t time_ = 0;
};

/// outline_of returns the outline of the first object of a text, or std::nullopt if parse returns null. It makes no
/// object, which would cost far more than reading the text. Who reads many records passes the same LastTime.
std::optional<Outline> outline_of(std::string_view record);
std::optional<Outline> outline_of(std::string_view record, LastTime &last_time);

/// attribute_head returns the text before a value of `size` bytes: NAME{SIZE}: and a tab.
std::string attribute_head(std::string_view name, size_t size);

/// date_of returns a time, in seconds since 1970, as the value of "rd-last-changed": date_size bytes for the years 1000
/// to 9999.
std::string date_of(time_t time);
constexpr uint32_t date_size = 29;

/// Undated is a record whose "rd-last-changed" has a placeholder as its value. Versions of a description are equal if
/// their undated records are.
struct Undated {
  std::string record;
  uint32_t date_offset;  // of the placeholder in the record; date_of replaces it
};
/// print_undated sets "rd-last-changed" of an object to a placeholder of date_size bytes and prints the object.
Undated print_undated(ObjectView &object);
/// is_version_of returns true if a record differs from an undated one at most in its time of change.
bool is_version_of(std::string_view record, const Undated &undated);

/// time_of returns the time in an attribute, in seconds since 1970, or 0 if there is no such attribute or it cannot be
/// parsed. change_time returns the time in "rd-last-changed".
time_t time_of(const SOIF *object, const char *attribute);
time_t change_time(const SOIF *object);
time_t change_time(const ObjectView &object);

}  // namespace rdm::catalog

#endif
