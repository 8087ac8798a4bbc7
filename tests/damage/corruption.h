// SPDX-License-Identifier: MIT
/// Ways in which the files of a catalog are damaged.
#ifndef TESTS_DAMAGE_CORRUPTION_H
#define TESTS_DAMAGE_CORRUPTION_H

#include <cstdint>
#include <string>

#include "damage/catalog.h"

namespace rdm::damage {

/// Corruption is a damaged catalog; the same seed makes the same one of the same files.
struct Corruption {
  std::string what;  // for the reader of a report
  Files files;
};

/// flip_bit changes one bit, often in a header, in the slots of a page or in a bitmap, which hold addresses.
Corruption flip_bit(const Files &files, uint32_t seed);

/// spoil_page damages a page as disks and other programs do: with zeros, random bytes, another page, a truncated file,
/// a page of the wrong kind or a wrong link. In an index it damages an entry.
Corruption spoil_page(const Files &files, uint32_t seed);

}  // namespace rdm::damage

#endif
