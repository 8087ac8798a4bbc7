// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/exposition.h"

namespace rdm::rdmd {
namespace {

void append_value(std::string &text, std::string_view value) {
  for (const char c : value) {
    if (c == '\\' || c == '"') text.push_back('\\');
    text.append(c == '\n' ? "\\n" : std::string_view(&c, 1));
  }
}

}  // namespace

std::string decimal_seconds(std::int64_t nanoseconds) {
  const std::string sign = nanoseconds < 0 ? "-" : "";
  const auto magnitude = static_cast<std::uint64_t>(nanoseconds < 0 ? -nanoseconds : nanoseconds);
  std::string fraction = std::to_string(1'000'000'000 + magnitude % 1'000'000'000);
  fraction.front() = '.';
  fraction.erase(fraction.find_last_not_of('0') + 1);
  return sign + std::to_string(magnitude / 1'000'000'000) + (fraction == "." ? "" : fraction);
}

void Exposition::family(std::string_view name, std::string_view type, std::string_view help) {
  name_ = name;
  text_.append("# HELP ").append(name).append(" ").append(help).append("\n");
  text_.append("# TYPE ").append(name).append(" ").append(type).append("\n");
}

void Exposition::begin_sample(Labels labels, std::string_view suffix) {
  text_.append(name_).append(suffix);
  char before = '{';
  for (const auto &[name, value] : labels) {
    text_.push_back(before);
    text_.append(name).append("=\"");
    append_value(text_, value);
    text_.push_back('"');
    before = ',';
  }
  text_.append(labels.size() > 0 ? "} " : " ");
}

void Exposition::sample(Labels labels, std::uint64_t value, std::string_view suffix) {
  begin_sample(labels, suffix);
  text_.append(std::to_string(value)).append("\n");
}

void Exposition::seconds(Labels labels, std::int64_t nanoseconds, std::string_view suffix) {
  begin_sample(labels, suffix);
  text_.append(decimal_seconds(nanoseconds)).append("\n");
}

}  // namespace rdm::rdmd
