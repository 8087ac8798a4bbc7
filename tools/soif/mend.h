// SPDX-License-Identifier: MIT
/// Mending an object with wrong byte counts, such as one that was edited by hand.
#ifndef SOIF_MEND_H
#define SOIF_MEND_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/soif/description.h"

namespace rdm::soif_tool {

/// Correction is a change that a text needs: its offset in the text, and words for people.
struct Correction {
  size_t offset;
  std::string words;  // "title{9} should be title{3}"
};

struct Mended {
  Description description;
  std::vector<Correction> corrections;
};

/// mend reads the object that begins a text and that fills it. A byte count stands if an attribute, the closing brace
/// or the end of the text follows the value; otherwise the value ends before the next line that is one of them. The
/// count may be missing ("title{}:"), a blank may stand for the tab, and the brace of the last line may be missing.
/// Returns std::nullopt if the text is no such object, or if it may be another one and text after it. Takes time in
/// proportion to the text.
std::optional<Mended> mend(std::string_view text);

/// ends_within_head returns true if a value, which is part of a text, ends within the name or the count of an attribute
/// that begins on a line of the value. Its byte count is then too large, although the parser may take it.
bool ends_within_head(std::string_view text, std::string_view value);

}  // namespace rdm::soif_tool

#endif
