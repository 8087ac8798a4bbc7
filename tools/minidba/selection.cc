// SPDX-License-Identifier: MIT
#include "tools/minidba/selection.h"

#include <algorithm>

#include "catalog/os/error.h"
#include "catalog/record.h"

namespace rdm::minidba {
std::vector<uint32_t> numbers_where(const Catalog &catalog, Progress &progress, const Predicate &chosen) {
  std::vector<uint32_t> numbers;
  catalog.each([&](uint32_t number, std::string_view record) {
    if (chosen(number, record)) numbers.push_back(number);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<uint32_t> numbers_to_copy(const Catalog &catalog, Progress &progress) {
  std::vector<uint32_t> numbers;
  catalog.each_to_copy([&](uint32_t number, std::string_view record) {
    numbers.push_back(number);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace rdm::minidba
