// SPDX-License-Identifier: MIT
/// Changing a catalog: each change makes the next snapshot of its files and puts it in their place.
#ifndef CATALOG_TRANSACTION_H
#define CATALOG_TRANSACTION_H

#include <functional>
#include <optional>
#include <string>

#include "catalog/catalog.h"
#include "catalog/os/lock.h"
#include "catalog/write_batch.h"

namespace rdm::catalog {

/// commit makes the changes the catalog's state: the next snapshots of its database and URL map take the places of the
/// old ones. `next_number` is the first that was never used. Where few records change, the files are copied and edited;
/// else they are written anew. Each description that is copied is checked as Catalog::each_to_copy does. A catalog that
/// is not there yet is made even without any change. A Failure
/// leaves the old catalog as it is, unless it says that the database is replaced: then the changes are the catalog's
/// state, and a map that is missing is made anew by the next writer.
///
/// `progress` is told of work that was done, in bytes, and how many there are to do.
using ProgressCallback = std::function<void(int64_t bytes, int64_t total)>;
void commit(
    const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
    const ProgressCallback &progress = [](int64_t, int64_t) {});

/// check_copy throws what commit would throw over a damaged record, and writes nothing.
void check_copy(const Catalog &catalog, const WriteBatch &batch);

/// rebuild_catalog writes database and URL map anew from the records alone, without those that are dropped. No two that
/// stay may have the same URL.
void rebuild_catalog(const Lock &lock, const Catalog &catalog, const WriteBatch &dropped,
                     const ProgressCallback &progress);

/// WriteSettings says how a catalog is opened for writing.
struct WriteSettings {
  IfMissing if_missing = IfMissing::error;
  bool dry_run = false;      // takes no lock and writes nothing
  double lock_timeout = -1;  // seconds; below zero waits for ever
  Lock::Message waiting = [](const std::string &) {};
  /// damage receives what is wrong with a file that is made anew from another.
  std::function<void(const std::string &text)> damage = [](const std::string &) {};
  /// prepare is called with the catalog that was opened. By default the records that are copied are compared with the
  /// index beside the database.
  std::function<void(Catalog &)> prepare = [](Catalog &catalog) { catalog.remember(known_records(catalog)); };
};

/// lock_for_writing takes the lock of a catalog; nothing in a dry run. A catalog that must be there and is not is a
/// Failure, and gets no lock file beside it.
std::optional<Lock> lock_for_writing(const std::string &database, const WriteSettings &settings);

/// WriteTransaction is a catalog that is about to change. It holds the lock with its scope; the catalog that it opened
/// cannot change meanwhile. A dry run takes no lock and writes nothing. A Failure leaves the catalog as it was, unless
/// it says what is replaced.
class WriteTransaction {
 public:
  explicit WriteTransaction(const std::string &database, const WriteSettings &settings = {});
  WriteTransaction(const WriteTransaction &) = delete;
  WriteTransaction &operator=(const WriteTransaction &) = delete;

  const Catalog &catalog() const { return catalog_; }
  /// begin comes before the first change: it writes the URL map anew if there is none of this snapshot with a checksum,
  /// or if it is damaged. A dry run goes by the records instead. A catalog that must be there has begun.
  void begin();

  /// date gives the undated descriptions of a batch their time of change, that of the commit, which has to follow.
  /// Returns that time; nothing if no description waits for one and in a dry run. `clock` is asked as late as possible.
  std::optional<time_t> date(WriteBatch &batch, const std::function<time_t()> &clock) const;
  /// commit makes the changes the catalog's state. A dry run only checks what would be copied.
  void commit(
      const WriteBatch &batch, uint32_t next_number, const ProgressCallback &progress = [](int64_t, int64_t) {}) const;
  /// rebuild writes the catalog anew without the descriptions that the batch erases.
  void rebuild(const WriteBatch &dropped, const ProgressCallback &progress) const;

 private:
  std::function<void(const std::string &text)> damage_;
  std::optional<Lock> lock_;
  Catalog catalog_;
};

}  // namespace rdm::catalog

#endif
