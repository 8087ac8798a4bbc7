// SPDX-License-Identifier: MIT
/// The view of a snapshot: what the attributes that a request selects are in its records.
#ifndef SERVICE_RDS_VIEW_H
#define SERVICE_RDS_VIEW_H

#include <optional>
#include <string_view>

#include "libcs/soif/canonical.h"
#include "qxapi/guard.h"
#include "service/rds/plan.h"
#include "service/rds/positions.h"

namespace rdm {

/// A view has at most this part of the bytes of its database: beyond it, disk space is worth more than the time. Tests
/// change it.
inline int64_t view_share = 4;

/// View has the printed text of records in a temporary file without a name, and a plan with its places. A record that
/// does not print as it is stored, or that a walk does not visit, has none. It is made by one walk through the
/// database, and kept for requests that select the same.
class View {
 public:
  View() = default;
  View(const View &) = delete;
  View &operator=(const View &) = delete;

  /// has returns true if the view is that of these attributes and has these positions.
  bool has(char **attributes, const Range &range) const noexcept;

  /// make makes the view of these attributes for a part of an index. Returns false, with nothing reported, if the text
  /// would be too long, or if memory, a file or room on the disk is missing. It then does not try the same again.
  bool make(Locator &locator, IndexFile &index, char **attributes, const Range &range) noexcept;

  /// plan has the places of the positions of the view. All are reserved.
  Plan &plan() noexcept { return *plan_; }
  /// text returns the file of the text, borrowed.
  host_fd text() const noexcept { return text_.get(); }

 private:
  static constexpr size_t block_size = 65536;

  bool is_of(char **attributes) const noexcept;
  bool prepare(Locator &locator, uint32_t index_count, char **attributes, const Range &range) noexcept;
  bool fill(Locator &locator, IndexFile &index, char **attributes) noexcept;
  void add(const soif::Pieces &pieces, Plan::Entry &entry) noexcept;
  void set_states() noexcept;
  bool flush() noexcept;

  HostText attributes_;  // their names, each followed by a comma
  Range range_;
  bool is_made_ = false;
  std::optional<Plan> plan_;
  HostFileGuard text_;
  int64_t size_ = 0, limit_ = 0;  // of the text, including the block
  HostText block_;                // of text that is not in the file yet, while the view is made
  size_t used_ = 0;
};

}  // namespace rdm

#endif
