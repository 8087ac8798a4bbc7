// SPDX-License-Identifier: MIT
/// A set of numbers of descriptions.
#ifndef CATALOG_NUMBER_SET_H
#define CATALOG_NUMBER_SET_H

#include <bitset>
#include <cstdint>
#include <unordered_map>

namespace rdm::catalog {

/// NumberSet takes a bit for each number up to the largest, but nothing for long gaps.
class NumberSet {
 public:
  /// insert and erase return true if they have changed the set.
  bool insert(uint32_t number) { return set(number, true); }
  bool erase(uint32_t number) { return set(number, false); }

 private:
  static constexpr uint32_t page_size = 4096;

  bool set(uint32_t number, bool value) {
    auto bit = pages_[number / page_size][number % page_size];
    const bool is_changed = bit != value;
    bit = value;
    return is_changed;
  }

  std::unordered_map<uint32_t, std::bitset<page_size>> pages_;
};

}  // namespace rdm::catalog

#endif
