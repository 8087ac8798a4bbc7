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

/// content deletes "rd-last-changed" from an object and returns the object as text. Versions of a description are equal
/// if their contents are.
std::string content(SOIF *object);

/// attribute_head returns the text before a value of `size` bytes: NAME{SIZE}: and a tab.
std::string attribute_head(std::string_view name, size_t size);

/// date_of returns a time, in seconds since 1970, as the value of "rd-last-changed": date_size bytes for the years 1000
/// to 9999.
std::string date_of(time_t time);
constexpr uint32_t date_size = 29;

/// Undated is a record whose "rd-last-changed" has a placeholder as its value.
struct Undated {
  std::string record;
  uint32_t date_offset;  // of the placeholder in the record; date_of replaces it
};
/// print_undated inserts "rd-last-changed" with a placeholder of date_size bytes into an object and prints it.
/// `content` is the result of content(object).
Undated print_undated(SOIF *object, std::string_view content);

/// time_of returns the time in an attribute, in seconds since 1970, or 0 if there is no such attribute or it cannot be
/// parsed. change_time returns the time in "rd-last-changed".
time_t time_of(const SOIF *object, const char *attribute);
time_t change_time(const SOIF *object);

}  // namespace rdm::catalog

#endif
