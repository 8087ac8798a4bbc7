// SPDX-License-Identifier: MIT
#include "service/rds/snapshot.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "service/text.h"

namespace rdm {
namespace {

/// The open snapshots, the one used last first. Plain pointers without destructors: the host's allocator may be gone
/// when the library is unloaded.
Snapshot *kept[snapshots::limit];

Snapshot **find(const Snapshot *snapshot) { return std::find(std::begin(kept), std::end(kept), snapshot); }

/// remove takes a snapshot out of the array and closes it.
void remove(Snapshot **place) {
  close_snapshot(*place);
  *std::move(place + 1, std::end(kept), place) = nullptr;
}

/// keep puts a snapshot in front. The one that was not used for the longest time makes room.
Snapshot *keep(SnapshotPtr snapshot) {
  close_snapshot(std::end(kept)[-1]);
  std::move_backward(std::begin(kept), std::end(kept) - 1, std::end(kept));
  return kept[0] = snapshot.release();
}

}  // namespace

void close_snapshot(Snapshot *snapshot) noexcept {
  if (snapshot == nullptr) return;
  snapshot->~Snapshot();
  host_free(snapshot);
}

SnapshotPtr Snapshot::open(const char *path) noexcept {
  HostText database = format_text("%s", path), index = format_text("%s.idx", path);
  HostPtr<void> memory(host_alloc(sizeof(Snapshot)));
  if (!database || !index || !memory) return nullptr;
  SnapshotPtr snapshot(new (memory.release()) Snapshot(std::move(database), std::move(index)));
  return snapshot->open_files() ? std::move(snapshot) : nullptr;
}

/// open_files reads the state before it opens the files and after it, so that the open files are those of the state.
bool Snapshot::open_files() noexcept {
  CatalogState after;
  if (!read_state(state_)) return false;
  settled_ = is_settled(state_.database) && is_settled(state_.index);
  if (!index_.open(index_path_.get())) return false;
  database_.reset(dba_open(path_.get(), "r"));
  if (!database_ || !locator_.open(database_->fd(database_.get()))) return false;
  return plan_.prepare(index_.count()) && read_state(after) && after == state_;
}

bool Snapshot::read_state(CatalogState &state) const noexcept {
  return rdm::read_state(index_path_.get(), state.index) && rdm::read_state(path_.get(), state.database);
}

bool Snapshot::is_current() const noexcept {
  CatalogState now;
  return settled_ && all_databases_locked_closed == 0 && !index_.failed() && read_state(now) && now == state_;
}

bool Snapshot::is_of(const char *path) const noexcept { return std::strcmp(path_.get(), path) == 0; }

namespace snapshots {

Snapshot *current(const char *path) noexcept {
  Snapshot **const place = std::find_if(std::begin(kept), std::end(kept),
                                        [path](const Snapshot *s) { return s != nullptr && s->is_of(path); });
  if (place != std::end(kept)) {
    if ((*place)->is_current()) {
      std::rotate(std::begin(kept), place, place + 1);
      return kept[0];
    }
    remove(place);
  }
  SnapshotPtr snapshot = Snapshot::open(path);
  return snapshot ? keep(std::move(snapshot)) : nullptr;
}

void drop(const Snapshot *snapshot) noexcept {
  Snapshot **const place = find(snapshot);
  if (place != std::end(kept)) remove(place);
}

void drop_all() noexcept {
  for (Snapshot *&snapshot : kept) close_snapshot(std::exchange(snapshot, nullptr));
}

}  // namespace snapshots
}  // namespace rdm
