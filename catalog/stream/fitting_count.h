// SPDX-License-Identifier: MIT
/// Guessing the right byte count of a malformed object.
#ifndef CATALOG_STREAM_FITTING_COUNT_H
#define CATALOG_STREAM_FITTING_COUNT_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace rdm::catalog {

/// fitting_count returns the size in bytes of the value at the start of `text`, the rest of an object. After the value
/// must come the line that closes the object, or attributes whose byte counts lead to that line. Nothing if no size
/// fits.
std::optional<size_t> fitting_count(std::string_view text);

}  // namespace rdm::catalog

#endif
