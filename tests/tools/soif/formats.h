// SPDX-License-Identifier: MIT
/// Converting descriptions in tests, and random ones.
#ifndef TESTS_TOOLS_SOIF_FORMATS_H
#define TESTS_TOOLS_SOIF_FORMATS_H

#include <string>
#include <vector>

#include "support/model.h"
#include "tools/soif/conversion.h"

namespace rdm {

/// Taken is what a reader found: descriptions, and "LINE:COLUMN: reason" of what it rejected, with the bytes.
struct Taken {
  std::vector<soif_tool::Description> descriptions;
  std::vector<std::string> faults, bytes;
};

/// read_in reads a text, in pieces of at most `piece` bytes.
Taken read_in(const std::string &format, const std::string &text, const soif_tool::Conversion &conversion = {},
              size_t piece = 1 << 16);

/// written_in returns descriptions in a format.
std::string written_in(const std::string &format, const std::vector<soif_tool::Description> &descriptions,
                       const soif_tool::Conversion &conversion = {});

/// random_descriptions generates descriptions that can be written as SOIF. Names repeat, and are instances of others.
rc::Gen<std::vector<soif_tool::Description>> random_descriptions();

}  // namespace rdm

#endif
