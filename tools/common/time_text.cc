// SPDX-License-Identifier: MIT
#include "tools/common/time_text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

#include <libcs/cs.h>

#include "catalog/os/error.h"
#include "qxapi/ascii.h"
#include "qxapi/number.h"
#include "qxapi/words.h"

namespace rdm::tools {

using catalog::Failure;
namespace {

using namespace std::chrono;
using Time = std::optional<sys_seconds>;

constexpr char forms[] =
    R"(; write 2026-11-01, 2026-11-01T12:00:00Z, "1 Nov 2026 12:00:00 GMT", @1793534400, yesterday or "3 days ago")";

/// missing returns the Failure for a time of a known form that does not exist.
Failure missing(const std::string &text) { return Failure("no such time: " + text); }

/// take_number removes a number of `least` to `most` digits from the front of a text.
std::optional<int> take_number(std::string_view &text, size_t least, size_t most) {
  size_t digits = 0;
  while (digits < text.size() && ascii::is_digit(text[digits])) ++digits;
  int number = 0;
  if (digits < least || digits > most) return std::nullopt;
  std::from_chars(text.data(), text.data() + digits, number);
  text.remove_prefix(digits);
  return number;
}

bool take(std::string_view &text, std::string_view start) {
  if (!ascii::istarts_with(text, start)) return false;
  text.remove_prefix(start.size());
  return true;
}

/// Fields are the fields of a time in the form of ISO 8601.
struct Fields {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, zone_minutes = 0;
};

bool take_date(std::string_view &text, Fields &fields) {
  const auto year = take_number(text, 4, 4);
  const auto month = year && take(text, "-") ? take_number(text, 2, 2) : std::nullopt;
  const auto day = month && take(text, "-") ? take_number(text, 2, 2) : std::nullopt;
  if (!day) return false;
  fields.year = *year;
  fields.month = *month;
  fields.day = *day;
  return true;
}

/// take_clock reads hour:minute and an optional :second with an optional fraction, which it ignores.
bool take_clock(std::string_view &text, Fields &fields) {
  const auto hour = take_number(text, 2, 2);
  const auto minute = hour && take(text, ":") ? take_number(text, 2, 2) : std::nullopt;
  const auto second = minute && take(text, ":") ? take_number(text, 2, 2) : minute ? std::optional(0) : std::nullopt;
  if (!second) return false;
  fields.hour = *hour;
  fields.minute = *minute;
  fields.second = *second;
  return !take(text, ".") || take_number(text, 1, 9);
}

/// take_zone reads Z, +01:00, +0100 or +01.
bool take_zone(std::string_view &text, Fields &fields) {
  if (take(text, "Z")) return true;
  const int sign = take(text, "+") ? 1 : take(text, "-") ? -1 : 0;
  const auto hours = sign != 0 ? take_number(text, 2, 4) : std::nullopt;
  if (!hours) return false;
  const bool together = *hours > 99;
  const auto minutes = take(text, ":") ? take_number(text, 2, 2) : std::optional(together ? *hours % 100 : 0);
  fields.zone_minutes = sign * ((together ? *hours / 100 : *hours) * 60 + minutes.value_or(0));
  return minutes.has_value();
}

bool exists(const Fields &f) {
  const year_month_day date = year(f.year) / month(static_cast<unsigned>(f.month)) / day(static_cast<unsigned>(f.day));
  return date.ok() && f.hour <= 23 && f.minute <= 59 && f.second <= 60 && std::abs(f.zone_minutes) < 24 * 60;
}

sys_seconds time_of(const Fields &f) {
  const year_month_day date = year(f.year) / month(static_cast<unsigned>(f.month)) / day(static_cast<unsigned>(f.day));
  return sys_days(date) + hours(f.hour) + minutes(f.minute) + seconds(f.second) - minutes(f.zone_minutes);
}

Time iso_time(std::string_view rest, const std::string &text) {
  Fields fields;
  if (!take_date(rest, fields)) return std::nullopt;
  if (!rest.empty()) {
    if ((!take(rest, "T") && !take(rest, " ")) || !take_clock(rest, fields)) return std::nullopt;
    take(rest, " ");
    if (!rest.empty() && (!take_zone(rest, fields) || !rest.empty())) return std::nullopt;
  }
  if (!exists(fields)) throw missing(text);
  return time_of(fields);
}

/// seconds_time reads @ and a number.
Time seconds_time(std::string_view text) {
  if (!take(text, "@")) return std::nullopt;
  const std::optional<int64_t> count = parse_number<int64_t>(text);
  return count && *count >= 0 ? Time(seconds(*count)) : std::nullopt;
}

/// months_before subtracts months. If the resulting day does not exist, it takes the last day of the month.
sys_seconds months_before(sys_seconds now, int count) {
  const auto midnight = floor<days>(now);
  const year_month_day today = midnight;
  const year_month_day day = today - months(count);
  const sys_days date = day.ok() ? sys_days(day) : sys_days(day.year() / day.month() / last);
  return date + (now - midnight);
}

Time ago(int count, std::string_view unit, sys_seconds now) {
  if (unit.size() > 1 && ascii::lower(unit.back()) == 's') unit.remove_suffix(1);
  if (ascii::iequals(unit, "second")) return now - seconds(count);
  if (ascii::iequals(unit, "minute")) return now - minutes(count);
  if (ascii::iequals(unit, "hour")) return now - hours(count);
  if (ascii::iequals(unit, "day")) return now - days(count);
  if (ascii::iequals(unit, "week")) return now - days(7 * count);
  if (ascii::iequals(unit, "month")) return months_before(now, count);
  if (ascii::iequals(unit, "year")) return months_before(now, 12 * count);
  return std::nullopt;
}

Time relative_time(std::string_view text, sys_seconds now) {
  if (ascii::iequals(text, "now")) return now;
  if (ascii::iequals(text, "today")) return floor<days>(now);
  if (ascii::iequals(text, "yesterday")) return floor<days>(now) - days(1);
  const std::vector<std::string_view> words = words_of(text, " \t");
  if (words.size() != 3 || !ascii::iequals(words[2], "ago")) return std::nullopt;
  std::string_view number = words[0];
  const std::optional<int> count = take_number(number, 1, 4);
  return count && number.empty() ? ago(*count, words[1], now) : std::nullopt;
}

constexpr std::string_view month_names[] = {"january", "february", "march",     "april",   "may",      "june",
                                            "july",    "august",   "september", "october", "november", "december"};
constexpr std::string_view day_names[] = {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
constexpr std::string_view zone_names[] = {"pst", "pdt", "mst", "mdt", "cst", "cdt", "est", "edt", "ast",
                                           "nst", "gmt", "ut",  "utc", "bst", "met", "eet", "jst"};

/// index_of returns the index of a name that is written in full or with its first three letters, or -1 for another
/// word.
template <size_t count>
int index_of(std::string_view word, const std::string_view (&names)[count]) {
  for (size_t i = 0; i < count; ++i)
    if (ascii::iequals(word, names[i]) || ascii::iequals(word, names[i].substr(0, 3))) return static_cast<int>(i);
  return -1;
}

/// DateWords finds errors that cs_str2time ignores: unknown words, and days that do not exist.
class DateWords {
 public:
  /// take returns false for a word that cannot be part of the date.
  bool take(std::string_view word) {
    if (ascii::is_digit(word[0])) return take_digits(word);
    if (word[0] == '+' || word[0] == '-') return is_offset(word.substr(1));
    if (const int which = index_of(word, month_names); which >= 0) return set(month_, which + 1);
    return index_of(word, day_names) >= 0 || index_of(word, zone_names) >= 0;
  }
  bool is_complete() const { return day_ && month_ && year_; }
  bool exists() const {
    const year_month_day date =
        year(*year_) / month(static_cast<unsigned>(*month_)) / day(static_cast<unsigned>(*day_));
    return date.ok() && (!clock_ || tools::exists({2000, 1, 1, clock_->hour, clock_->minute, clock_->second, 0}));
  }

 private:
  static bool set(std::optional<int> &field, int value) {
    if (field) return false;
    field = value;
    return true;
  }
  static bool is_offset(std::string_view digits) {
    const size_t size = digits.size();
    return (size == 1 || size == 2 || size == 4) && std::all_of(digits.begin(), digits.end(), ascii::is_digit);
  }
  bool take_time(std::string_view word) {
    Fields fields;
    const auto hour = take_number(word, 1, 2);
    const auto minute = hour && tools::take(word, ":") ? take_number(word, 1, 2) : std::nullopt;
    const auto second = minute && tools::take(word, ":") ? take_number(word, 1, 2) : minute;
    if (clock_ || !second || !word.empty()) return false;
    fields.hour = *hour;
    fields.minute = *minute;
    fields.second = *second;
    clock_ = fields;
    return true;
  }
  bool take_digits(std::string_view word) {
    if (word.find(':') != std::string_view::npos) return take_time(word);
    const size_t size = word.size();
    const std::optional<int> number = take_number(word, 1, 4);
    if (!number || !word.empty() || size == 3) return false;
    if (size == 4) return set(year_, *number);
    return day_ ? size == 2 && set(year_, *number + (*number < 70 ? 2000 : 1900)) : set(day_, *number);
  }

  std::optional<int> day_, month_, year_;
  std::optional<Fields> clock_;
};

bool is_month(std::string_view text, size_t end) {
  size_t start = end;
  while (start > 0 && ascii::is_alpha(text[start - 1])) --start;
  return index_of(text.substr(start, end - start), month_names) >= 0;
}

/// spaced separates words joined with hyphens, as in 16-Nov-2026, and the offset from the name of a zone, as in
/// GMT+0200.
std::string spaced(std::string_view text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool is_sign = text[i] == '-' || text[i] == '+';
    const bool joins = text[i] == '-' && i + 1 < text.size() && (ascii::is_alpha(text[i + 1]) || is_month(text, i));
    if (is_sign && i > 0 && ascii::is_alpha(text[i - 1]) && !joins) result += ' ';
    result += joins ? ' ' : text[i];
  }
  return result;
}

Time written_time(const std::string &text) {
  DateWords date;
  const std::string words = spaced(text);
  for (const std::string_view word : words_of(words, " \t,;/()[]"))
    if (!date.take(word)) return std::nullopt;
  if (!date.is_complete()) return std::nullopt;
  time_t time = 0;
  if (!date.exists() || cs_str2time(words.c_str(), &time) == 0) throw missing(text);
  return sys_seconds(seconds(time));
}

}  // namespace

time_t read_time(const std::string &text, time_t now) {
  Time time = seconds_time(text);
  if (!time) time = iso_time(text, text);
  if (!time) time = relative_time(text, sys_seconds(seconds(now)));
  if (!time) time = written_time(text);
  if (!time) throw Failure("not a time: " + text + forms);
  return static_cast<time_t>(time->time_since_epoch().count());
}

}  // namespace rdm::tools
