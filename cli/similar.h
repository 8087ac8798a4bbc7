// SPDX-License-Identifier: MIT
/// Finds the known word that a mistyped one probably means. Header only; needs only the standard library.
#ifndef CLI_SIMILAR_H
#define CLI_SIMILAR_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "qxapi/ascii.h"

namespace rdm::cli {

/// distance returns the edit distance of two words, ignoring case: the number of letters to insert, delete, replace or
/// swap with their neighbour (optimal string alignment). Takes time for the product of the lengths.
inline std::size_t distance(std::string_view a, std::string_view b) {
  const auto same = [&](std::size_t i, std::size_t j) { return ascii::lower(a[i]) == ascii::lower(b[j]); };
  std::vector<std::size_t> before_last(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 0; i < a.size(); ++i) {
    before_last.swap(last);
    last.swap(row);
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      row[j + 1] = std::min({last[j + 1] + 1, row[j] + 1, last[j] + (same(i, j) ? 0 : 1)});
      const bool swapped = i > 0 && j > 0 && same(i, j - 1) && same(i - 1, j);
      if (swapped) row[j + 1] = std::min(row[j + 1], before_last[j - 1] + 1);
    }
  }
  return row[b.size()];
}

/// nearest returns the first of the `known` words, a range of texts, with the least distance to `word`; empty if the
/// distance is more than a third of the longer word. The result is valid as long as the range.
template <typename Words>
std::string_view nearest(std::string_view word, const Words &known) {
  std::string_view best;
  std::size_t best_distance = 0;
  for (const std::string_view candidate : known) {
    const auto [shorter, longer] = std::minmax({word.size(), candidate.size()});
    if (longer - shorter > longer / 3) continue;
    const std::size_t found = distance(word, candidate);
    if (found > longer / 3 || (!best.empty() && found >= best_distance)) continue;
    best = candidate;
    best_distance = found;
  }
  return best;
}

/// did_you_mean returns ` (did you mean "WORD"?)` with the nearest known word; empty if nearest returns none.
template <typename Words>
std::string did_you_mean(std::string_view word, const Words &known) {
  const std::string_view meant = nearest(word, known);
  return meant.empty() ? "" : " (did you mean \"" + std::string(meant) + "\"?)";
}

}  // namespace rdm::cli

#endif
