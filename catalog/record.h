// SPDX-License-Identifier: MIT
/// Resource descriptions as a catalog keeps them.
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

/// database_key returns the key of a number: 8 hexadecimal digits. number_of is its inverse; nothing for another text.
std::string database_key(uint32_t number);
constexpr uint32_t database_key_size = 8;
std::optional<uint32_t> number_of(std::string_view key);

/// print returns an object as text.
std::string print(const SOIF *object);
/// parse returns the object that a record holds, or null.
SoifPtr parse(std::string_view record);
/// url_of returns the URL of a record, or nothing when it holds no object.
std::optional<std::string> url_of(std::string_view record);
/// parse_only does the same but keeps only the attributes of these names, in lower case, and their numbered instances.
SoifPtr parse_only(std::string_view record, std::vector<std::string> names);

/// content returns what makes two versions of a description equal: its text without "rd-last-changed". The object loses
/// that attribute.
std::string content(SOIF *object);

/// date_of returns a time as "rd-last-changed" tells it.
std::string date_of(time_t time);
constexpr uint32_t date_size = 29;  // bytes, for the years 1000 to 9999

/// Undated is a record whose time of change is not yet known.
struct Undated {
  std::string record;
  uint32_t date_offset;  // where date_of the time will stand in the record
};
/// print_undated prints an object with room for "rd-last-changed". `content` is what the procedure of that name
/// returned for the object.
Undated print_undated(SOIF *object, std::string_view content);

/// time_of returns the time that an attribute tells, 0 when it is not there or cannot be read.
time_t time_of(const SOIF *object, const char *attribute);
/// change_time returns the time of "rd-last-changed".
time_t change_time(const SOIF *object);

}  // namespace rdm::catalog

#endif
