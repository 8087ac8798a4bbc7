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

bool View::has(char **attributes, uint32_t first, uint32_t count) const noexcept {
  return is_made_ && first >= first_ && first - first_ <= count_ && count <= count_ - (first - first_) &&
         is_of(attributes);
}

bool View::make(Locator &locator, uint32_t index_count, char **attributes, const Range &range) noexcept {
  if (has(attributes, range.first, range.count)) return true;
  if (!is_made_ && is_of(attributes)) return false;
  is_made_ = prepare(locator, index_count, attributes, range) && fill(locator, attributes, range);
  block_.reset();
  if (is_made_) return true;
  plan_.reset();
  text_ = HostFileGuard();
  return false;
}

bool View::prepare(Locator &locator, uint32_t index_count, char **attributes, const Range &range) noexcept {
  attributes_ = join(attributes);
  first_ = range.first;
  count_ = range.count;
  size_ = 0;
  used_ = 0;
  limit_ = locator.size() / view_share;
  plan_.emplace();
  text_ = open_text();
  block_.reset(static_cast<char *>(host_alloc(block_size)));
  return attributes_ && text_ && block_ && plan_->prepare(index_count) && plan_->reserve(range.first, range.count);
}

bool View::fill(Locator &locator, char **attributes, const Range &range) noexcept {
  Positions positions;
  if (!positions.map(range.first, range.numbers, range.count)) return false;
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
        // If a page has a key twice, the first record is the one that a look-up finds.
        Plan::Entry &entry = view.plan_->entry(*position);
        if (entry.state != Plan::unknown) return;
        entry.state = Plan::other;
        if (selection.printed(record, pieces) && pieces.size() <= block_size) view.add(pieces, entry);
      },
      &walk);
  return flush() && size_ <= limit_;
}

/// add appends the text of a record. If that fails, the size is beyond the limit.
void View::add(const soif::Pieces &pieces, Plan::Entry &entry) noexcept {
  if (pieces.size() > block_size - used_ && !flush()) return;
  entry = {size_, static_cast<uint32_t>(pieces.size()), Plan::as_stored};
  for (const std::string_view piece : pieces) used_ += piece.copy(block_.get() + used_, piece.size());
  size_ += entry.size;
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
