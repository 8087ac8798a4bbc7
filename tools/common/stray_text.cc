// SPDX-License-Identifier: MIT
#include "tools/common/stray_text.h"

#include <algorithm>

#include "libcs/soif/grammar.h"
#include "qxapi/escaped.h"

namespace rdm::tools {

std::string StrayText::before(const catalog::SoifStream::Item &item) {
  std::string text = between(end_, item.offset);
  end_ = item.end;
  return text;
}

std::string StrayText::between(int64_t from, int64_t to) {
  constexpr int64_t longest_gap = 65536;
  if (stream_.is_blank(from, to)) return "";
  const std::string text = stream_.text_between(from, std::min(to, from + longest_gap));
  const size_t gap = std::min(text.find_first_not_of(soif::white_space), text.size());
  const int64_t line = stream_.place_of(from + static_cast<int64_t>(gap)).line;
  return escaped(stream_.name()) + ": line " + std::to_string(line) + ": text that belongs to no object";
}

}  // namespace rdm::tools
