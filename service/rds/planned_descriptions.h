// SPDX-License-Identifier: MIT
/// Printing the descriptions of a snapshot by its plan.
#ifndef SERVICE_RDS_PLANNED_DESCRIPTIONS_H
#define SERVICE_RDS_PLANNED_DESCRIPTIONS_H

#include "service/rds/descriptions.h"
#include "service/rds/snapshot.h"

namespace rdm {

/// PlannedDescriptions prints as QuickDescriptions does. It reads records that print as they are stored from their
/// place in the file, and notes in the plan of the snapshot what it finds out about the others.
class PlannedDescriptions {
 public:
  PlannedDescriptions(Snapshot &snapshot, char **attributes, csio *output) noexcept;

  /// plan fills the entries of the positions from `first` on, which have these numbers, by a walk through the file, if
  /// that is cheaper than a page for each unknown entry.
  void plan(uint32_t first, const uint32_t *numbers, uint32_t count) noexcept;

  /// print prints the record at a position of the index, whose number it is. Returns true if it did. The bytes are in
  /// the output after flush.
  bool print(uint32_t position, uint32_t number) noexcept;

  /// flush appends what is printed to the output.
  void flush() noexcept;

 private:
  static constexpr size_t block_size = 65536;

  bool is_planned(Plan::Entry &entry, uint32_t number) noexcept;
  bool select(char *record, size_t &size) noexcept;
  bool copy(Location place) noexcept;

  Snapshot &snapshot_;
  csio *output_;
  bool selects_;  // only some attributes are printed
  QuickDescriptions others_;
  soif::Canonical whole_, selection_;
  soif::Pieces pieces_;
  HostText block_;  // bytes printed and not yet appended
  size_t used_ = 0;
};

}  // namespace rdm

#endif
