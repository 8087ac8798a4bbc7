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

/// flip_bit changes one bit: often one of a header, of the slots of a page or of a page of bits, which all say where
/// other bytes are.
Corruption flip_bit(const Files &files, uint32_t seed);

/// spoil_page does to a page what disks and other programs do: it is zero, random, another one, cut off, of the wrong
/// kind, or goes on where it must not. Entries are the pages of an index.
Corruption spoil_page(const Files &files, uint32_t seed);

}  // namespace rdm::damage

#endif
