// SPDX-License-Identifier: MIT
/// Changing a catalog: a commit writes the next snapshot of its files and replaces the old ones by rename.
#ifndef CATALOG_TRANSACTION_H
#define CATALOG_TRANSACTION_H

#include <functional>
#include <optional>
#include <string>

#include "catalog/catalog.h"
#include "catalog/os/lock.h"
#include "catalog/used_numbers.h"
#include "catalog/write_batch.h"

namespace rdm::catalog {

/// ProgressCallback receives the bytes that were written since its last call, and the bytes to write in all.
using ProgressCallback = std::function<void(int64_t bytes, int64_t total)>;

/// commit applies a batch: it writes the next snapshots of database and URL map and renames them over the old ones. If
/// few records change, it copies and edits the files; otherwise it writes whole files. It reads back and compares the
/// new files, and checks each record that it copies (Catalog::each_to_copy). `next_number` is the smallest number that
/// was never used; 0 if all are. A catalog that does not exist is created even if the batch is empty.
///
/// A Failure leaves the old catalog as it is, unless its text says that the database is replaced. The changes are then
/// in effect, and the next writer makes the URL map if it is missing.
void commit(
    const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
    const ProgressCallback &progress = [](int64_t, int64_t) {});

/// publish does what commit does, and replaces the index beside the database too: all new files are written and synced
/// before the first is renamed, and the index is renamed directly after the database. The trailer of the database then
/// has the checksum of that index, by which mend_index recognises an index of another state. If no record changes, only
/// an index that is not of this database is replaced; a record that contradicts it is a Failure.
///
/// A Failure leaves the old files as they are, unless its text says that one is replaced.
void publish(
    const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
    const ProgressCallback &progress = [](int64_t, int64_t) {});

/// has_other_index returns true if a database was published together with an index, and the file beside it is not that
/// index: a command was interrupted between two renames, or another program has changed the database or the index.
bool has_other_index(const Catalog &catalog);
/// mend_index writes the index beside a database for which has_other_index returns true, provided that the records give
/// the index which was published with it. Returns true if it has written the index. Throws a Failure if the records or
/// the index cannot be read or written.
bool mend_index(const Lock &lock, const Catalog &catalog);

/// check_copy throws the Failure that commit would throw at a damaged record, without writing a file.
void check_copy(const Catalog &catalog, const WriteBatch &batch);

/// back_up writes the database of a catalog to `target`, which it replaces atomically: a database whose trailer has the
/// checksum of the index of its records, so that damage to the backup is found. It compares each record with the index,
/// and throws a Failure at a damaged one. If the index is missing, the records must be those that were published.
void back_up(
    const Catalog &catalog, const std::string &target, const ProgressCallback &progress = [](int64_t, int64_t) {});
/// check_backup throws a Failure if a database is not a backup, or if its records do not have its checksum.
void check_backup(const Catalog &backup);
/// restore calls check_backup and makes the backup the state of the catalog at the path `database`: database, index and
/// URL map, replaced as publish does. The numbers and times of change that `used` names are not given again. A Failure
/// leaves the old files as they are, unless its text says that one is replaced.
void restore(
    const Lock &lock, const Catalog &backup, const std::string &database, const UsedNumbers &used,
    const ProgressCallback &progress = [](int64_t, int64_t) {});

/// rebuild_catalog writes the whole database and its URL map from the records, without those that `dropped` erases. No
/// two of the remaining descriptions may have the same URL. A Failure has the same effect as one of commit.
void rebuild_catalog(const Lock &lock, const Catalog &catalog, const WriteBatch &dropped,
                     const ProgressCallback &progress);

/// WriteSettings holds the options for opening a catalog for writing.
struct WriteSettings {
  IfMissing if_missing = IfMissing::error;
  bool dry_run = false;                                // takes no lock and writes nothing
  double lock_timeout = -1;                            // seconds; below zero for no limit
  Lock::Message waiting = [](const std::string &) {};  // receives the holder of the lock, before waiting for it
  /// damage receives a message about a damaged URL map that the transaction replaces, or about the index of another
  /// state that it replaces or cannot replace.
  std::function<void(const std::string &text)> damage = [](const std::string &) {};
  /// prepare is called with the opened catalog. The default compares each copied record with the index.
  std::function<void(Catalog &)> prepare = [](Catalog &catalog) { catalog.remember(known_records(catalog)); };
};

/// lock_for_writing takes the lock of a catalog and returns it, or std::nullopt in a dry run. With IfMissing::error, a
/// missing database is a Failure, and no lock file is created. Throws a Failure if the lock cannot be taken in time.
std::optional<Lock> lock_for_writing(const std::string &database, const WriteSettings &settings);

/// open_locked opens the catalog of a lock, which may be null. If that fails, it calls Lock::withdraw and throws the
/// Failure.
Catalog open_locked(Lock *lock, const std::string &database, IfMissing if_missing = IfMissing::error);

/// WriteTransaction holds the lock of a catalog, so that no other writer changes it. A dry run takes no lock and writes
/// nothing. A Failure leaves the catalog as it was, unless its text says that a file is replaced.
class WriteTransaction {
 public:
  /// WriteTransaction locks and opens a catalog, and calls mend_index. With IfMissing::error it also calls begin.
  explicit WriteTransaction(const std::string &database, const WriteSettings &settings = {});
  WriteTransaction(const WriteTransaction &) = delete;
  WriteTransaction &operator=(const WriteTransaction &) = delete;

  const Catalog &catalog() const { return catalog_; }
  /// begin must be called before the first lookup of a URL for a change. It writes the URL map from the records if the
  /// map is missing, damaged, without a checksum, or from another snapshot. A dry run reads the records instead.
  void begin();

  /// date sets the time of change of the undated records of a batch: next_change of the catalog and the batch. It calls
  /// `clock` once, as late as possible; the commit must follow. Returns the time, or std::nullopt in a dry run or if no
  /// record is undated.
  std::optional<time_t> date(WriteBatch &batch, const std::function<time_t()> &clock) const;
  /// commit calls catalog::commit; in a dry run it calls check_copy.
  void commit(
      const WriteBatch &batch, uint32_t next_number, const ProgressCallback &progress = [](int64_t, int64_t) {}) const;
  /// publish calls catalog::publish; in a dry run it calls check_copy.
  void publish(
      const WriteBatch &batch, uint32_t next_number, const ProgressCallback &progress = [](int64_t, int64_t) {}) const;
  /// rebuild calls rebuild_catalog; in a dry run it does nothing.
  void rebuild(const WriteBatch &dropped, const ProgressCallback &progress) const;

 private:
  void mend() const;

  std::function<void(const std::string &text)> damage_;
  std::optional<Lock> lock_;
  Catalog catalog_;
};

}  // namespace rdm::catalog

#endif
