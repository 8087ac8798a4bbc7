// SPDX-License-Identifier: MIT
#include "hosts/common/http_date.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <vector>

#include <qxapi/qxapi.h>

#include "qxapi/ascii.h"
#include "qxapi/number.h"
#include "qxapi/words.h"

namespace rdm::hosts {
namespace {

constexpr std::string_view months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// The words of a time.
struct DateWords {
  std::string_view day, month, year, clock;
};

/// digits returns the number that `text` is if it has at most `most` digits and nothing else.
std::optional<int> digits(std::string_view text, std::size_t most) {
  if (text.size() > most || !std::all_of(text.begin(), text.end(), ascii::is_digit)) return std::nullopt;
  return parse_number<int>(text);
}

std::optional<DateWords> split(std::string_view text) {
  const std::vector<std::string_view> words = words_of(text, text.find(',') == std::string_view::npos ? " " : " ,-");
  if (words.size() == 5) return DateWords{words[2], words[1], words[4], words[3]};
  if (words.size() == 6 && words[5] == "GMT") return DateWords{words[1], words[2], words[3], words[4]};
  return std::nullopt;
}

std::optional<std::chrono::sys_days> parse_day(const DateWords &words) {
  const auto *const month = std::find(std::begin(months), std::end(months), words.month);
  const std::optional<int> day = digits(words.day, 2), year = digits(words.year, 4);
  if (!day || !year) return std::nullopt;
  const int century = words.year.size() > 2 ? 0 : (*year < 70 ? 2000 : 1900);
  const std::chrono::year_month_day date(std::chrono::year(century + *year),
                                         std::chrono::month(static_cast<unsigned>(month - months) + 1),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  return date.ok() ? std::optional<std::chrono::sys_days>(date) : std::nullopt;
}

/// parse_clock reads a time of day such as "08:49:37". A leap second counts as the next second.
std::optional<int> parse_clock(std::string_view text) {
  if (text.size() != 8 || text[2] != ':' || text[5] != ':') return std::nullopt;
  const auto hours = digits(text.substr(0, 2), 2), minutes = digits(text.substr(3, 2), 2),
             seconds = digits(text.substr(6), 2);
  if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 60) return std::nullopt;
  return (*hours * 60 + *minutes) * 60 + *seconds;
}

}  // namespace

std::string http_date(std::time_t time) {
  struct tm fields;
  char text[64] = "";
  if (host_gmtime(&time, &fields) != nullptr) host_format_time(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &fields);
  return text;
}

std::optional<std::time_t> parse_http_date(std::string_view text) {
  const std::optional<DateWords> words = split(text);
  const auto day = words ? parse_day(*words) : std::nullopt;
  const auto seconds = words ? parse_clock(words->clock) : std::nullopt;
  if (!day || !seconds) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::seconds>(day->time_since_epoch()).count() + *seconds;
}

}  // namespace rdm::hosts
