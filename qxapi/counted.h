// SPDX-License-Identifier: MIT
/// Numbers with nouns, for messages.
#ifndef QXAPI_COUNTED_H
#define QXAPI_COUNTED_H

#include <string>
#include <type_traits>

namespace rdm {

/// counted returns a count and the form of a word that fits it: "1 fault", "2 faults", or with `several` "1 entry",
/// "0 entries". Without `several`, the plural has an "s".
template <typename Count>
std::string counted(Count count, const std::string &one, const std::string &several = "") {
  static_assert(std::is_integral_v<Count>, "a count");
  const std::string plural = several.empty() ? one + "s" : several;
  return std::to_string(count) + ' ' + (count == 1 ? one : plural);
}

}  // namespace rdm

#endif
