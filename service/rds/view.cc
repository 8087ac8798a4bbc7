// SPDX-License-Identifier: MIT
#include "service/rds/view.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "qxapi/temporary_directory.h"
#include "qxapi/uninterrupted.h"

namespace rdm {
namespace {

HostText join(char **names) noexcept {
  size_t size = 1;
  for (char **name = names; *name != nullptr; ++name) size += std::strlen(*name) + 1;
  HostText joined(static_cast<char *>(host_alloc(size)));
  char *end = joined.get();
  for (char **name = names; end != nullptr && *name != nullptr; ++name) {
    end = stpcpy(end, *name);
    *end++ = ',';
  }
  if (end != nullptr) *end = '\0';
  return joined;
}

/// open_text makes a file without a name. It reports nothing: an answer can do without.
HostFileGuard open_text() noexcept {
  const char *const directory = temporary_directory(host_stat);
  return HostFileGuard(directory != nullptr ? ::open(directory, O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600) : -1);
}

}  // namespace

bool View::is_of(char **attributes) const noexcept {
  if (!attributes_) return false;
  std::string_view rest = attributes_.get();
  for (; *attributes != nullptr; ++attributes) {
    const std::string_view name = *attributes;
    if (!rest.starts_with(name) || !rest.substr(name.size()).starts_with(',')) return false;
    rest.remove_prefix(name.size() + 1);
  }
  return rest.empty();
}

bool View::has(char **attributes, const Range &range) const noexcept {
  return is_made_ && range.first >= range_.first && range.first - range_.first <= range_.count &&
         range.count <= range_.count - (range.first - range_.first) && is_of(attributes);
}

bool View::make(Locator &locator, IndexFile &index, char **attributes, const Range &range) noexcept {
  if (has(attributes, range)) return true;
  if (!is_made_ && is_of(attributes)) return false;
  is_made_ = prepare(locator, index.count(), attributes, range) && fill(locator, index, attributes);
  block_.reset();
  if (is_made_) return true;
  plan_.reset();
  text_ = HostFileGuard();
  return false;
}

bool View::prepare(Locator &locator, uint32_t index_count, char **attributes, const Range &range) noexcept {
  attributes_ = join(attributes);
  range_ = range;
  size_ = 0;
  used_ = 0;
  limit_ = locator.size() / view_share;
  plan_.emplace();
  text_ = open_text();
  block_.reset(static_cast<char *>(host_alloc(block_size)));
  return attributes_ && text_ && block_ && plan_->prepare(index_count) && plan_->reserve(range.first, range.count);
}

/// fill marks the entries of the records that it has visited by an offset below zero until they have a place: the
/// states may hold the map of positions.
bool View::fill(Locator &locator, IndexFile &index, char **attributes) noexcept {
  Positions positions;
  if (!positions.map_in(*plan_, index, range_)) return false;
  struct Walk {
    View &view;
    const Positions &positions;
    soif::Canonical selection;
    soif::Pieces pieces;
  } walk{*this, positions, soif::Canonical(attributes), {}};
  locator.walk(
      [](void *argument, std::string_view key, std::string_view record, Location) {
        auto &[view, all, selection, pieces] = *static_cast<Walk *>(argument);
        const std::optional<uint32_t> position = all.find(key);
        if (!position || view.size_ > view.limit_) return;
        // If a page has a key twice, a look-up finds the record that is visited first.
        Plan::Entry &entry = view.plan_->entry(*position);
        if (entry.size > 0 || entry.offset < 0) return;
        entry.offset = -1;
        if (selection.printed(record, pieces) && pieces.size() <= block_size) view.add(pieces, entry);
      },
      &walk);
  set_states();
  return flush() && size_ <= limit_;
}

/// add appends the text of a record. If that fails, the size is beyond the limit.
void View::add(const soif::Pieces &pieces, Plan::Entry &entry) noexcept {
  if (pieces.size() > block_size - used_ && !flush()) return;
  entry.offset = size_;
  entry.size = static_cast<uint32_t>(pieces.size());
  for (const std::string_view piece : pieces) used_ += piece.copy(block_.get() + used_, piece.size());
  size_ += entry.size;
}

void View::set_states() noexcept {
  for (uint32_t i = 0; i < range_.count; ++i) {
    Plan::Entry &entry = plan_->entry(range_.first + i);
    entry.state = entry.size > 0 ? Plan::as_stored : Plan::other;
  }
}

/// flush writes the block. Returns false, with a size beyond the limit, if that fails.
bool View::flush() noexcept {
  const int64_t start = size_ - static_cast<int64_t>(used_);
  const auto put = uninterrupted([&] { return ::pwrite(text_.get(), block_.get(), used_, start); });
  if (put != static_cast<ssize_t>(used_)) size_ = limit_ + 1;
  used_ = 0;
  return size_ <= limit_;
}

}  // namespace rdm
