// SPDX-License-Identifier: MIT
/// Parses any text as a date and compares with a slow model, which looks up the shape of every word in a table and
/// counts days one at a time.

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include <libcs/cs.h>

#include "fuzz/fuzz.h"

using namespace rdm;

namespace {

constexpr std::string_view blanks = " \t,;/()[]";
constexpr std::string_view time_shapes[] = {"9:9",    "9:99",    "99:9",   "99:99",   "9:9:9",   "9:9:99",
                                            "9:99:9", "9:99:99", "99:9:9", "99:9:99", "99:99:9", "99:99:99"};
constexpr std::string_view month_names[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                            "jul", "aug", "sep", "oct", "nov", "dec"};
constexpr struct {
  std::string_view name;
  int hours, minutes;
} zones[] = {{"pst", -8, 0}, {"pdt", -7, 0}, {"mst", -7, 0}, {"mdt", -6, 0}, {"cst", -6, 0},
             {"cdt", -5, 0}, {"est", -5, 0}, {"edt", -4, 0}, {"ast", -4, 0}, {"nst", -3, -30},
             {"gmt", 0, 0},  {"bst", 1, 0},  {"met", 1, 0},  {"eet", 2, 0},  {"jst", 9, 0}};

bool is_digit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool is_letter(char c) { return lower(c) >= 'a' && lower(c) <= 'z'; }

/// shape maps a digit to 9 and a letter to lower case.
std::string shape(std::string word) {
  for (char &c : word) c = is_digit(c) ? '9' : lower(c);
  return word;
}

bool begins(const std::string &text, std::string_view front) { return text.compare(0, front.size(), front) == 0; }

struct Model {
  int day = -1, month = -1, year = -1;
  int64_t time = -1;
  bool zoned = false, fixed = false;  // a zone was seen; an offset cannot replace it
  int zone = 0, offset = -1;          // minutes east of UTC

  void take(const std::string &word);
  void take_time(const std::string &word);
  void take_number(const std::string &word);
  void take_name(const std::string &form);
  void take_offset(const std::string &word);
  time_t value() const;
};

void Model::take_time(const std::string &word) {
  int h = 0, m = 0, s = 0;
  // NOLINTNEXTLINE(cert-err34-c): a missing number counts as 0
  std::sscanf(word.c_str(), "%d:%d:%d", &h, &m, &s);
  if (time == -1 && h < 24 && m < 60 && s <= 60) time = h * 3600 + m * 60 + s;
}

void Model::take_number(const std::string &word) {
  const int n = std::stoi(word);
  if (word.size() == 4) {
    if (year == -1) year = n;
  } else if (day == -1 && n >= 1 && n <= 31) {
    day = n;
  } else if (year == -1 && word.size() == 2) {
    year = n < 70 ? 2000 + n : 1900 + n;
  }
}

void Model::take_name(const std::string &form) {
  for (int i = 0; i < 12; ++i)
    if (month == -1 && begins(form, month_names[i])) month = i;
  if (zoned) return;
  const bool is_ut = form == "ut" || (begins(form, "ut") && !is_letter(form[2]));
  const auto found = std::find_if(std::begin(zones), std::end(zones), [&](auto &z) { return begins(form, z.name); });
  if (found == std::end(zones) && !is_ut) return;
  zoned = true;
  zone = is_ut ? 0 : found->hours * 60 + found->minutes;
  fixed = !is_ut && found->name != "gmt";
}

void Model::take_offset(const std::string &word) {
  if (offset >= 0 || fixed) return;
  std::string digits = word.substr(1);
  digits = digits.substr(0, std::min(digits.find_first_not_of("0123456789"), digits.size()));
  if (digits.size() != 1 && digits.size() != 2 && digits.size() != 4) return;
  const int n = std::stoi(digits);
  offset = (digits.size() == 4 ? n / 100 * 60 + n % 100 : n * 60) * (word[0] == '-' ? -1 : 1);
  zoned = true;
  zone = 0;
}

void Model::take(const std::string &word) {
  const std::string form = shape(word);
  if (form[0] == '+' || form[0] == '-') return take_offset(word);
  if (form == "9" || form == "99" || form == "9999") return take_number(word);
  if (std::find(std::begin(time_shapes), std::end(time_shapes), form) != std::end(time_shapes)) return take_time(word);
  if (form[0] != '9') take_name(form);
}

bool is_leap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

time_t Model::value() const {
  constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (day == -1 || month == -1 || year == -1) return 0;
  int64_t days = day - 1;
  for (int y = 1970; y < year; ++y) days += is_leap(y) ? 366 : 365;
  for (int y = year; y < 1970; ++y) days -= is_leap(y) ? 366 : 365;
  for (int m = 0; m < month; ++m) days += lengths[m] + (m == 1 && is_leap(year) ? 1 : 0);
  return std::max<int64_t>(days * 86400 + std::max<int64_t>(time, 0) - int64_t{60} * (offset == -1 ? zone : offset), 0);
}

time_t model(const std::string &text) {
  Model date;
  for (size_t at = 0; at < text.size();) {
    const bool is_zone_sign = date.year != -1 && at + 1 < text.size() && is_digit(text[at + 1]);
    if (blanks.find(text[at]) != std::string_view::npos || (text[at] == '-' && !is_zone_sign)) {
      ++at;
      continue;
    }
    const size_t end = std::min(text.find_first_of(std::string(blanks) + "+-", at + 1), text.size());
    date.take(text.substr(at, end - at));
    at = end;
  }
  return date.value();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string text(fuzz::text(data, size));
  text = text.substr(0, text.find('\0'));
  const time_t read = ZAN_ParseTimeString(text.c_str(), 1);
  fuzz::require(read == model(text), "a date has another time than in the model");
  fuzz::require(ZAN_ParseTimeString(text.c_str(), 0) >= 0, "a date without a zone has a negative time");
  char printed[64];
  time_t again = 0;
  cs_time2str(read, printed, sizeof printed);
  fuzz::require(cs_str2time(printed, &again) == read, "printing and parsing changed a time");
  return 0;
}
