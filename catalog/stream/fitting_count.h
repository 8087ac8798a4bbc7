// SPDX-License-Identifier: MIT
/// The byte count that a value should have had.
#ifndef CATALOG_STREAM_FITTING_COUNT_H
#define CATALOG_STREAM_FITTING_COUNT_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace rdm::catalog {

/// fitting_count returns the size of the value that `text` begins with, judged by what follows it: a line that closes
/// the object, or attributes whose own counts lead there. `text` is the rest of the object. Nothing when no size fits.
std::optional<size_t> fitting_count(std::string_view text);

}  // namespace rdm::catalog

#endif
