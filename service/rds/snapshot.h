// SPDX-License-Identifier: MIT
/// Snapshots of catalogs that stay open between requests.
///
/// Catalogs change by rename, so an open index and database stay what they are until their paths lead to other files,
/// which two calls of stat() tell. A snapshot is only opened if index and database are sound; nothing here writes
/// diagnostics. A request for which there is no snapshot opens the files itself, and reports what is wrong with them.
///
/// Not more than snapshots::limit catalogs stay open, each with two descriptors (close-on-exec, as host_open_read opens
/// them) and memory of the host: about 100 KiB, and 16 bytes for each description that was asked for, twice if
/// attributes were selected; the view of these is a file. A replaced file takes disk space until the next request for
/// its catalog. Only one thread at a time may call these procedures.
#ifndef SERVICE_RDS_SNAPSHOT_H
#define SERVICE_RDS_SNAPSHOT_H

#include "dba/guard.h"
#include "service/rds/file_state.h"
#include "service/rds/index_file.h"
#include "service/rds/plan.h"
#include "service/rds/view.h"

namespace rdm {

/// CatalogState is the state of the two files of a catalog.
struct CatalogState {
  FileState database, index;
  bool operator==(const CatalogState &) const = default;
};

class Snapshot;
void close_snapshot(Snapshot *snapshot) noexcept;
using SnapshotPtr = std::unique_ptr<Snapshot, Deleter<close_snapshot>>;

/// Snapshot is the open index and the open database of one catalog.
class Snapshot {
 public:
  /// open returns the snapshot of the catalog whose database is `path`; or null if it cannot be opened, its index is
  /// damaged, its files change meanwhile, the databases are locked, or allocation fails.
  static SnapshotPtr open(const char *path) noexcept;

  /// is_current returns true if the paths lead to the same, unchanged files, and the databases are not locked.
  bool is_current() const noexcept;
  bool is_of(const char *path) const noexcept;

  IndexFile &index() noexcept { return index_; }
  /// database returns the open database, borrowed.
  DB *database() const noexcept { return database_.get(); }
  /// locator reads the file of the database.
  Locator &locator() noexcept { return locator_; }
  /// plan has an entry for each position of the index.
  Plan &plan() noexcept { return plan_; }
  /// view is that of the attributes which were last selected for many records.
  View &view() noexcept { return view_; }
  /// path returns the path of the database, borrowed.
  const char *path() const noexcept { return path_.get(); }

 private:
  friend void close_snapshot(Snapshot *snapshot) noexcept;
  Snapshot(HostText path, HostText index_path) noexcept : path_(std::move(path)), index_path_(std::move(index_path)) {}
  ~Snapshot() = default;
  bool open_files() noexcept;
  bool read_state(CatalogState &state) const noexcept;

  HostText path_, index_path_;
  CatalogState state_;
  bool settled_ = false;
  IndexFile index_;
  DatabasePtr database_;
  Locator locator_;
  Plan plan_;
  View view_;
};

namespace snapshots {

constexpr int limit = 8;

/// current returns the snapshot of the catalog with this database as its files are now, borrowed until the next call of
/// a procedure of this namespace. Returns null if Snapshot::open does.
Snapshot *current(const char *path) noexcept;

/// drop closes a snapshot of `current`, which turned out to be damaged.
void drop(const Snapshot *snapshot) noexcept;

/// drop_all closes all snapshots.
void drop_all() noexcept;

}  // namespace snapshots
}  // namespace rdm

#endif
