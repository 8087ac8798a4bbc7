// SPDX-License-Identifier: MIT
/// Selecting descriptions of a catalog.
#ifndef MINIDBA_SELECTION_H
#define MINIDBA_SELECTION_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/catalog.h"
#include "libcs/guard.h"
#include "tools/minidba/output/progress.h"

namespace rdm::minidba {

/// numbers_where returns the numbers, ascending, of the descriptions for which `chosen` returns true. Throws a Failure
/// at damage.
using Predicate = std::function<bool(uint32_t number, std::string_view record)>;
std::vector<uint32_t> numbers_where(const Catalog &catalog, Progress &progress, const Predicate &chosen);
/// numbers_to_copy returns all numbers, ascending, and checks every record as Catalog::each_to_copy does.
std::vector<uint32_t> numbers_to_copy(const Catalog &catalog, Progress &progress);

}  // namespace rdm::minidba

#endif
