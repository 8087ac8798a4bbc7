// SPDX-License-Identifier: MIT
/// Parses the same bytes as SOIF in a file and in memory. Both must give the same objects, except for an object whose
/// value is cut off by the end of the input: in a file it is lost with everything after it; in memory up to 65,536
/// missing bytes are filled in, and a value that lacks more is refused, so that the objects within it are found.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/print.h"
#include "qxapi/ascii.h"

using namespace rdm;

namespace {

/// announces_too_much returns true if the text up to `position` ends with a size, "{size}:" and a tab, that reaches
/// further past the text than a value may. A size may contain braces; the first brace begins it.
bool announces_too_much(std::string_view text, size_t position) {
  constexpr std::string_view end = "}:\t";
  if (position < end.size() || text.substr(position - end.size(), end.size()) != end) return false;
  const std::string_view before = text.substr(0, position - end.size());
  const int64_t longest = static_cast<int64_t>(text.size() - position) + 65536;
  for (size_t brace = before.rfind('{'); brace != std::string_view::npos; brace = before.substr(0, brace).rfind('{'))
    if (ascii::to_int32(before.substr(brace + 1)) > longest) return true;
  return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text = fuzz::text(data, size);
  const fuzz::MemoryFile bytes(text);
  const StdioPtr file = open_stdio(bytes.path().c_str());
  SoifReader from_file(file.get()), from_text(text);
  while (!from_text.at_end()) {
    const SoifPtr one = from_file.next(), other = from_text.next();
    if (from_file.at_end() && !from_text.at_end()) {
      const auto position = static_cast<size_t>(from_text.position());
      fuzz::require(!one && !other && announces_too_much(text, position),
                    "the file reader lost an object before the end");
      break;
    }
    if (!one && other) {
      fuzz::require(from_text.at_end() && from_file.at_end(), "the file reader lost an object that is not the last");
      break;
    }
    fuzz::require(!one == !other, "the file reader found an object that the text reader did not");
    if (one) fuzz::require(fuzz::same(*one, *other), "file and text readers returned different objects");
  }
  while (!from_file.at_end())
    fuzz::require(from_file.next() == nullptr, "the file reader returned an object after the last");
  return 0;
}
