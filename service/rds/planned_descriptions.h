// SPDX-License-Identifier: MIT
/// Printing the descriptions of a snapshot by its plan.
#ifndef SERVICE_RDS_PLANNED_DESCRIPTIONS_H
#define SERVICE_RDS_PLANNED_DESCRIPTIONS_H

#include <optional>

#include "service/rds/body.h"
#include "service/rds/descriptions.h"
#include "service/rds/snapshot.h"

namespace rdm {

/// Fewer bytes are copied: a slice costs the host more than they do. Tests change it.
inline uint64_t least_slice = 65536;

/// PlannedDescriptions prints as QuickDescriptions does. It reads records that print as they are stored from their
/// place in the file, or leaves it to the host to send them from there, and notes in the plan of the snapshot what it
/// finds out about the others. Of many records with selected attributes a host that sends slices gets the view.
class PlannedDescriptions {
 public:
  PlannedDescriptions(Snapshot &snapshot, char **attributes, Body &output) noexcept;

  /// print prints the records of a part of the index. Returns how many it printed. It stops if the index cannot be read
  /// (IndexFile::failed).
  int32_t print(const Range &range) noexcept;

 private:
  static constexpr size_t block_size = 65536;

  /// Run is a number of neighbours in the index, and the size of their records.
  struct Run {
    uint32_t count = 0;
    uint64_t size = 0;
  };
  bool view(const Range &range) noexcept;
  bool has_view() const noexcept { return plan_ != &snapshot_.plan(); }
  void plan(const Range &range) noexcept;
  void look_up(uint32_t position) noexcept;
  bool is_planned(uint32_t position) noexcept;
  Run run_at(const Range &range) noexcept;
  bool slice(uint32_t first, Run run) noexcept;
  bool print(uint32_t position) noexcept;
  bool select(char *record, size_t &size) noexcept;
  bool read(Location place, char *bytes) const noexcept;
  bool make_room(uint32_t size) noexcept;
  bool copy(Location place) noexcept;
  void flush() noexcept;

  Snapshot &snapshot_;
  Body &output_;
  char **attributes_;        // null: all are printed
  Plan *plan_;               // that of the snapshot, or of its view
  host_fd file_;             // where the records lie by this plan, borrowed
  bool is_reserved_ = true;  // the plan has memory
  // Made when they are needed: each has a table of names, and most small requests need none.
  std::optional<QuickDescriptions> others_;
  std::optional<soif::Canonical> whole_, selection_;
  soif::Pieces pieces_;
  uint32_t count_ = 0;  // of the records that are to be printed
  HostText block_;      // bytes printed and not yet appended
  size_t capacity_ = 0, used_ = 0;
};

}  // namespace rdm

#endif
