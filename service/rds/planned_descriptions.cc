// SPDX-License-Identifier: MIT
#include "service/rds/planned_descriptions.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "qxapi/hex.h"
#include "qxapi/uninterrupted.h"
#include "service/rds/positions.h"

namespace rdm {
namespace {

struct Key {
  char text[key_size];
};

Key key_of(uint32_t number) {
  Key key;
  for (size_t i = key_size; i-- > 0; number >>= 4) key.text[i] = hex::digits[number & 15];
  return key;
}

/// judge notes in an entry whether its record prints as it is stored.
void judge(soif::Canonical &whole, soif::Pieces &pieces, std::string_view record, Location place, Plan::Entry &entry) {
  const bool is_stored = place.size > 0 && whole.printed(record, pieces);
  entry = {place.offset, place.size, is_stored ? Plan::as_stored : Plan::other};
}

/// Filling is a walk that fills a plan.
struct Filling {
  Plan &plan;
  const Positions &positions;
  soif::Canonical whole;
  soif::Pieces pieces;

  void visit(std::string_view key, std::string_view record, Location place) noexcept {
    const std::optional<uint32_t> position = positions.find(key);
    if (!position) return;
    // If a page has a key twice, a look-up finds the record that is visited first.
    Plan::Entry &entry = plan.entry(*position);
    if (entry.state == Plan::unknown) judge(whole, pieces, record, place, entry);
  }
};

}  // namespace

PlannedDescriptions::PlannedDescriptions(Snapshot &snapshot, char **attributes, Body &output) noexcept
    : snapshot_(snapshot),
      output_(output),
      attributes_(attributes != nullptr && attributes[0] != nullptr ? attributes : nullptr),
      plan_(&snapshot.plan()),
      file_(snapshot.locator().file()) {}

/// view takes the records from the view of the attributes. It makes that if a walk through the file is cheaper than a
/// page for each record. Returns false if there is none.
bool PlannedDescriptions::view(const Range &range) noexcept {
  View &view = snapshot_.view();
  const bool has_view =
      view.has(attributes_, range) || (range.count >= snapshot_.locator().buckets() &&
                                       view.make(snapshot_.locator(), snapshot_.index(), attributes_, range));
  if (!has_view) return false;
  plan_ = &view.plan();
  file_ = view.text();
  return true;
}

/// plan fills the entries of the positions by a walk through the file, if that is cheaper than a page for each unknown
/// entry.
void PlannedDescriptions::plan(const Range &range) noexcept {
  is_reserved_ = plan_->reserve(range.first, range.count);
  if (!is_reserved_) return;
  uint32_t unknown = 0;
  for (uint32_t i = 0; i < range.count; ++i) unknown += plan_->entry(range.first + i).state == Plan::unknown ? 1 : 0;
  Positions positions;
  if (unknown < snapshot_.locator().buckets() || !positions.map(snapshot_.index(), range)) return;
  Filling filling{*plan_, positions, soif::Canonical(), {}};
  snapshot_.locator().walk([](void *walk, std::string_view key, std::string_view record,
                              Location place) { static_cast<Filling *>(walk)->visit(key, record, place); },
                           &filling);
}

/// look_up looks up a record of which nothing is known.
void PlannedDescriptions::look_up(uint32_t position) noexcept {
  const Key key = key_of(snapshot_.index().entry(position).number);
  if (snapshot_.index().failed()) return;
  std::string_view record;
  const Location place = snapshot_.locator().find({key.text, key_size}, record);
  if (!whole_) whole_.emplace();
  judge(*whole_, pieces_, record, place, plan_->entry(position));
}

/// is_planned returns true if the place of a record is known. A view is known as a whole.
bool PlannedDescriptions::is_planned(uint32_t position) noexcept {
  const Plan::Entry &entry = plan_->entry(position);
  if (entry.state == Plan::unknown && !has_view()) look_up(position);
  return entry.state == Plan::as_stored && entry.size <= block_size;
}

/// run_at returns the records from a position on that print as they are stored, as far as the answer has room.
PlannedDescriptions::Run PlannedDescriptions::run_at(const Range &range) noexcept {
  Run run;
  for (; run.count < range.count; ++run.count) {
    const Plan::Entry &entry = plan_->entry(range.first + run.count);
    if (!is_planned(range.first + run.count) || !has_room(output_.length() + used_ + run.size, entry.size)) break;
    run.size += entry.size;
  }
  return run;
}

/// slice appends a run as a slice. Returns false if it has to be copied.
bool PlannedDescriptions::slice(uint32_t first, Run run) noexcept {
  if (run.size < least_slice) return false;
  flush();
  return output_.add_slice({file_, plan_->file(), first, run.count, static_cast<int64_t>(run.size)});
}

/// select moves the lines of the selected attributes to the front of a record in memory, and stores their size. Returns
/// false if it cannot.
bool PlannedDescriptions::select(char *record, size_t &size) noexcept {
  if (!selection_) selection_.emplace(attributes_);
  if (!selection_->printed({record, size}, pieces_)) return false;
  for (const std::string_view piece : pieces_) {
    std::memmove(record, piece.data(), piece.size());
    record += piece.size();
  }
  size = pieces_.size();
  return true;
}

bool PlannedDescriptions::read(Location place, char *bytes) const noexcept {
  const auto got = uninterrupted([&] { return ::pread(file_, bytes, place.size, place.offset); });
  return got == static_cast<ssize_t>(place.size);
}

/// make_room makes room for a record in the block, which is no larger than all records need: a small request should
/// not allocate large blocks. Returns false if allocation fails.
bool PlannedDescriptions::make_room(uint32_t size) noexcept {
  if (size > capacity_ - used_) flush();
  if (size <= capacity_) return true;
  capacity_ = std::min(block_size, size_t{size} * count_);
  block_.reset(static_cast<char *>(host_alloc(capacity_)));
  if (!block_) capacity_ = 0;
  return capacity_ > 0;
}

/// copy reads a record to the end of the block. Returns false, with nothing printed, if allocation fails, the file has
/// changed or the answer has no room.
bool PlannedDescriptions::copy(Location place) noexcept {
  if (!make_room(place.size)) return false;
  char *const record = block_.get() + used_;
  size_t size = place.size;
  if (!read(place, record) || (attributes_ != nullptr && !has_view() && !select(record, size))) return false;
  if (!has_room(output_.length() + used_, size)) return false;
  used_ += size;
  return true;
}

/// print prints one record. Returns true if it did.
bool PlannedDescriptions::print(uint32_t position) noexcept {
  if (is_reserved_ && is_planned(position) && copy(plan_->entry(position).place())) return true;
  const uint32_t number = snapshot_.index().entry(position).number;
  if (snapshot_.index().failed()) return false;
  // QuickDescriptions reports what is missing or malformed, and what the answer has no room for.
  flush();
  if (!others_) others_.emplace(snapshot_.database(), attributes_, output_.buffer());
  others_->count_elsewhere(output_.sliced());
  return others_->print(number);
}

int32_t PlannedDescriptions::print(const Range &range) noexcept {
  const bool sends_slices = host_sends_slices() != 0;
  const bool may_slice = sends_slices && (attributes_ == nullptr || view(range));
  if (!has_view()) plan(range);
  count_ = range.count;
  int32_t printed = 0;
  const uint32_t all = range.first + range.count;
  for (uint32_t at = range.first; at < all && !snapshot_.index().failed();) {
    const Run run = may_slice && is_reserved_ ? run_at({at, all - at}) : Run();
    const uint32_t end = at + std::max(run.count, 1u);
    if (slice(at, run)) {
      printed += static_cast<int32_t>(run.count);
      at = end;
    }
    for (; at < end; ++at) printed += print(at) ? 1 : 0;
  }
  flush();
  return printed;
}

/// flush appends what is printed to the output.
void PlannedDescriptions::flush() noexcept {
  constexpr size_t small = 1024;  // with larger parts a buffer leaves the memory before it is full
  csio *const buffer = output_.buffer();
  for (size_t done = 0, part = 0; done < used_; done += part) {
    part = (buffer->flags & CSIO_MEMORY) != 0 ? std::min(small, used_ - done) : used_ - done;
    csio_append(buffer, block_.get() + done, static_cast<int32_t>(part));
  }
  used_ = 0;
}

}  // namespace rdm
