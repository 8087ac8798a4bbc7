// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/accept_encoding.h"

#include <algorithm>
#include <optional>

#include "qxapi/ascii.h"
#include "qxapi/words.h"

namespace rdm::rdmd {
namespace {

constexpr std::string_view coding_blanks = " \t";

/// A weight in thousandths.
using Weight = int;
constexpr Weight full = 1000;

/// parse_weight reads "0", "0.5", "1.000" and the like: at most three decimals, and at most 1.
std::optional<Weight> parse_weight(std::string_view text) {
  const bool is_weight =
      (text.starts_with('0') || text.starts_with('1')) && text.size() <= 5 && (text.size() == 1 || text[1] == '.');
  if (!is_weight) return std::nullopt;
  Weight weight = text[0] == '1' ? full : 0, unit = full;
  for (const char c : text.substr(std::min<std::size_t>(2, text.size()))) {
    if (!ascii::is_digit(c)) return std::nullopt;
    weight += (unit /= 10) * (c - '0');
  }
  return weight <= full ? std::optional(weight) : std::nullopt;
}

/// weight_of returns the weight in the parameters of a member, such as "q=0.5", or `full` without parameters.
std::optional<Weight> weight_of(std::string_view parameters) {
  if (parameters.empty()) return full;
  const std::string_view parameter = trim(parameters.substr(1), coding_blanks);
  return ascii::istarts_with(parameter, "q=") ? parse_weight(parameter.substr(2)) : std::nullopt;
}

struct Weights {
  std::optional<Weight> gzip, identity, others;  // others: "*"
};

std::optional<Weight> *weight_named(Weights &weights, std::string_view coding) {
  if (ascii::iequals(coding, "gzip") || ascii::iequals(coding, "x-gzip")) return &weights.gzip;
  if (ascii::iequals(coding, "identity")) return &weights.identity;
  return coding == "*" ? &weights.others : nullptr;
}

void read_member(Weights &weights, std::string_view member) {
  const std::string_view coding = member.substr(0, member.find(';'));
  std::optional<Weight> *const weight = weight_named(weights, trim(coding, coding_blanks));
  if (weight != nullptr && !*weight) *weight = weight_of(member.substr(coding.size()));
}

}  // namespace

bool accepts_gzip(std::string_view accept_encoding) {
  Weights weights;
  while (!accept_encoding.empty()) {
    const std::string_view member = accept_encoding.substr(0, accept_encoding.find(','));
    read_member(weights, member);
    accept_encoding.remove_prefix(std::min(member.size() + 1, accept_encoding.size()));
  }
  const Weight gzip = weights.gzip.value_or(weights.others.value_or(0));
  return gzip > 0 && gzip >= weights.identity.value_or(0);
}

}  // namespace rdm::rdmd
