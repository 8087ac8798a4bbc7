// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <ctime>
#include <optional>
#include <string_view>

#include <libcs/cs.h>

#include "qxapi/ascii.h"
#include "qxapi/fatal.h"

using namespace rdm;

namespace {

constexpr int unset = -1;

/// The parts of a date found so far.
struct Date {
  std::optional<std::chrono::seconds> time_of_day;
  int day = unset;
  int month = unset;              // 1 to 12
  int year = unset;               // with all its digits
  std::optional<int> zone;        // minutes east of UTC, by the zone's name
  bool zone_takes_offset = true;  // no zone so far, or GMT or UT
  int offset = unset;             // minutes east of UTC, by a signed number; minus one minute equals `unset`
};

constexpr std::string_view month_names[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                            "jul", "aug", "sep", "oct", "nov", "dec"};

struct Zone {
  std::string_view name;
  int minutes;
  bool is_utc = false;
};
constexpr Zone zones[] = {
    {"pst", -480}, {"pdt", -420}, {"mst", -420}, {"mdt", -360}, {"cst", -360},    {"cdt", -300},
    {"est", -300}, {"edt", -240}, {"ast", -240}, {"nst", -210}, {"gmt", 0, true}, {"ut", 0, true},
    {"bst", 60},   {"met", 60},   {"eet", 120},  {"jst", 540},
};

constexpr bool is_sign(char c) { return c == '+' || c == '-'; }
constexpr bool is_delimiter(char c) {
  switch (c) {
    case ' ':
    case '\t':
    case ',':
    case ';':
    case '/':
    case '(':
    case ')':
    case '[':
    case ']':
      return true;
    default:
      return false;
  }
}

/// is_separator returns true if the first character separates words. A "-" does, as in 16-Nov-2026, until the year is
/// known; then one before a digit starts a zone offset.
bool is_separator(std::string_view text, const Date &date) {
  if (text[0] != '-') return is_delimiter(text[0]);
  return date.year == unset || text.size() < 2 || !ascii::is_digit(text[1]);
}

std::string_view token_at(std::string_view text) {
  const auto end = std::find_if(text.begin() + 1, text.end(), [](char c) { return is_delimiter(c) || is_sign(c); });
  return text.substr(0, static_cast<size_t>(end - text.begin()));
}

size_t count_digits(std::string_view text) {
  return static_cast<size_t>(std::find_if_not(text.begin(), text.end(), [](char c) { return ascii::is_digit(c); }) -
                             text.begin());
}

int value_of(std::string_view digits) {
  int value = 0;
  for (const char digit : digits) value = value * 10 + (digit - '0');
  return value;
}

/// begins_with returns true if a word begins with a lower-case name, in any case. Nearly all differ in the first
/// letter.
bool begins_with(std::string_view word, std::string_view name) {
  return ascii::lower(word[0]) == name[0] && ascii::istarts_with(word, name);
}

void take_month(std::string_view word, Date &date) {
  for (int i = 0; i < 12; ++i)
    if (date.month == unset && begins_with(word, month_names[i])) date.month = i + 1;
}

bool names(std::string_view word, const Zone &zone) {
  if (!begins_with(word, zone.name)) return false;
  return zone.name.size() == 3 || word.size() == 2 || !ascii::is_alpha(word[2]);
}

void take_zone(std::string_view word, Date &date) {
  if (date.zone) return;
  const auto zone = std::find_if(std::begin(zones), std::end(zones), [&](const Zone &z) { return names(word, z); });
  if (zone == std::end(zones)) return;
  date.zone = zone->minutes;
  date.zone_takes_offset = zone->is_utc;
}

/// take_offset reads the zone offset after a sign. A number of another length is ignored.
void take_offset(std::string_view token, Date &date) {
  if (date.offset >= 0 || !date.zone_takes_offset) return;
  const size_t digits = count_digits(token.substr(1));
  if (digits == 0 || digits == 3 || digits > 4) return;
  const int number = value_of(token.substr(1, digits));
  const int minutes = digits == 4 ? number / 100 * 60 + number % 100 : number * 60;
  date.offset = token[0] == '-' ? -minutes : minutes;
  date.zone = 0;
}

/// take_number removes a number of one or two digits, at most `highest`, from the front of `text`.
std::optional<int> take_number(std::string_view &text, int highest) {
  const size_t digits = count_digits(text);
  if (digits < 1 || digits > 2) return std::nullopt;
  const int number = value_of(text.substr(0, digits));
  text.remove_prefix(digits);
  return number <= highest ? std::optional(number) : std::nullopt;
}

std::optional<int> take_number_after_colon(std::string_view &text, int highest) {
  if (text.empty() || text[0] != ':') return std::nullopt;
  text.remove_prefix(1);
  return take_number(text, highest);
}

/// take_time reads hour:minute or hour:minute:second.
void take_time(std::string_view token, Date &date) {
  const auto hour = take_number(token, 23);
  const auto minute = take_number_after_colon(token, 59);
  const auto second = token.empty() ? 0 : take_number_after_colon(token, 60);
  if (date.time_of_day || !hour || !minute || !second || !token.empty()) return;
  date.time_of_day = std::chrono::hours(*hour) + std::chrono::minutes(*minute) + std::chrono::seconds(*second);
}

void take_year(int year, Date &date) {
  if (date.year == unset) date.year = year;
}

void take_day_or_year(std::string_view digits, Date &date) {
  const int number = value_of(digits);
  if (date.day == unset && number >= 1 && number <= 31)
    date.day = number;
  else if (digits.size() == 2)
    take_year(number + (number < 70 ? 2000 : 1900), date);
}

void take_digits(std::string_view token, Date &date) {
  const size_t digits = count_digits(token);
  if (digits < token.size() && token[digits] == ':')
    take_time(token, date);
  else if (digits < token.size())
    return;
  else if (digits == 4)
    take_year(value_of(token), date);
  else if (digits <= 2)
    take_day_or_year(token, date);
}

/// Weekdays are ignored like other words: they add nothing to the date.
void take(std::string_view token, Date &date) {
  if (is_sign(token[0])) return take_offset(token, date);
  if (ascii::is_digit(token[0])) return take_digits(token, date);
  take_month(token, date);
  take_zone(token, date);
}

Date read_date(std::string_view text) {
  Date date;
  while (!text.empty()) {
    if (is_separator(text, date)) {
      text.remove_prefix(1);
      continue;
    }
    const std::string_view token = token_at(text);
    take(token, date);
    text.remove_prefix(token.size());
  }
  return date;
}

std::optional<int> zone_minutes(const Date &date, int flag) {
  if (date.offset != unset) return date.offset;
  return date.zone || flag == 0 ? date.zone : 0;
}

time_t utc_time(const Date &date, int minutes_east) {
  using namespace std::chrono;
  const auto first = year(date.year) / month(static_cast<unsigned>(date.month)) / 1;
  const seconds midnight = sys_days(first).time_since_epoch() + days(date.day - 1);
  return (midnight + date.time_of_day.value_or(0s) - minutes(minutes_east)).count();
}

time_t local_time(const Date &date) {
  const std::chrono::hh_mm_ss time(date.time_of_day.value_or(std::chrono::seconds(0)));
  struct tm fields {};
  fields.tm_sec = static_cast<int>(time.seconds().count());
  fields.tm_min = static_cast<int>(time.minutes().count());
  fields.tm_hour = static_cast<int>(time.hours().count());
  fields.tm_mday = date.day;
  fields.tm_mon = date.month - 1;
  fields.tm_year = date.year - 1900;
  return ::mktime(&fields);
}

}  // namespace

time_t ZAN_ParseTimeString(const char *text, int flag) noexcept {
  if (text == nullptr) {
    qx_report_assertion("extra", __LINE__, "string");
    return 0;
  }
  const Date date = read_date(text);
  if (date.day == unset || date.month == unset || date.year == unset) return 0;
  const std::optional<int> minutes_east = zone_minutes(date, flag);
  return std::max<time_t>(minutes_east ? utc_time(date, *minutes_east) : local_time(date), 0);
}

time_t cs_str2time(const char *text, time_t *out) noexcept { return *out = ZAN_ParseTimeString(text, 1); }
