// SPDX-License-Identifier: MIT
#include "catalog/transaction.h"

#include <utility>

#include "catalog/change_times.h"
#include "catalog/hash/editor.h"
#include "catalog/maintenance.h"
#include "catalog/os/error.h"
#include "catalog/record.h"

namespace rdm::catalog {
namespace {

using Change = WriteBatch::Change;

bool is_erased(const Change &change) { return change.record_size == WriteBatch::erased; }

/// The offset of a RecordRef is the position of its change in the batch for a put record, and -1 - number for a copied
/// one.
int64_t offset_of(uint32_t number) { return -1 - int64_t{number}; }
uint32_t number_at(int64_t offset) { return static_cast<uint32_t>(-1 - offset); }

RecordRef ref_of(const Change &change, size_t position) {
  return {static_cast<int64_t>(position), hash_of(database_key(change.number)), database_key_size,
          is_erased(change) ? erased_value : change.record_size};
}

/// RecordSource loads records from the batch or from the old file.
class RecordSource {
 public:
  RecordSource(const Catalog &catalog, const WriteBatch &batch) : catalog_(catalog), batch_(batch) {}

  Record operator()(const RecordRef &ref) {
    const uint32_t number = ref.offset >= 0 ? put(ref).number : number_at(ref.offset);
    key_ = database_key(number);
    if (ref.offset < 0)
      value_ = copied(number);
    else if (is_erased(put(ref)))
      value_.clear();
    else
      batch_.read_record(position_of(ref), value_);
    return {key_, value_};
  }

 private:
  static size_t position_of(const RecordRef &ref) { return static_cast<size_t>(ref.offset); }
  const Change &put(const RecordRef &ref) const { return batch_.at(position_of(ref)); }
  std::string copied(uint32_t number) const {
    std::optional<std::string> record = catalog_.get(number);
    if (!record) throw catalog_.refused(number, {}, "it is not found by its key");
    return *std::move(record);
  }

  const Catalog &catalog_;
  const WriteBatch &batch_;
  std::string key_, value_;
};

/// changed_numbers returns the predicate of the numbers that a batch changes.
Catalog::Predicate changed_numbers(const WriteBatch &batch) {
  return [&batch](uint32_t number) { return batch.of_number(number) != nullptr; };
}

/// edit_database returns false if the next snapshot cannot be an edited copy.
bool edit_database(const Catalog &catalog, const WriteBatch &batch, const File &file, Trailer trailer) {
  if (!catalog.exists() || catalog.is_partial()) return false;
  std::vector<RecordRef> refs;
  batch.each_number([&](const Change &change, size_t position) { refs.push_back(ref_of(change, position)); });
  const auto check = [&](std::string_view key, std::string_view record) {
    catalog.check_copied(key, record, changed_numbers(batch));
  };
  return edit_hash_file(catalog.table(), file, refs, RecordSource(catalog, batch), trailer, check);
}

void write_database(const Catalog &catalog, const WriteBatch &batch, const File &file, Trailer trailer,
                    const ProgressCallback &progress) {
  std::vector<RecordRef> refs;
  refs.reserve(static_cast<size_t>(batch.count()));
  const auto add = [&](uint32_t number, std::string_view record) {
    refs.push_back(
        {offset_of(number), hash_of(database_key(number)), database_key_size, static_cast<uint32_t>(record.size())});
  };
  catalog.each_to_copy(add, changed_numbers(batch));
  batch.each_number([&](const Change &change, size_t position) {
    if (!is_erased(change)) refs.push_back(ref_of(change, position));
  });
  int64_t total = 0;
  for (const RecordRef &ref : refs) total += int64_t{ref.key_size} + ref.value_size;
  build_hash_file(file, refs, RecordSource(catalog, batch), trailer,
                  [&](int64_t, int64_t bytes) { progress(bytes, total); });
}

/// differs returns true if a change maps its URL to another number than the old map does.
bool differs(const UrlMap &old, const WriteBatch &batch, const Change &change) {
  return is_erased(change) || old.number_of(batch.url(change)) != change.number;
}

bool edit_urls(const UrlMap &old, const WriteBatch &batch, const File &file, Trailer trailer) {
  std::vector<RecordRef> refs;
  batch.each_url([&](const Change &change, size_t) {
    if (differs(old, batch, change))
      refs.push_back(
          {change.url_offset, change.url_hash, change.url_size, is_erased(change) ? erased_value : database_key_size});
  });
  std::string text;
  const RecordLoader load = [&](const RecordRef &ref) {
    text.resize(ref.key_size + database_key_size);
    batch.url_texts().read(ref.offset, text.data(), text.size());
    const std::string_view bytes = text;
    return Record{bytes.substr(0, ref.key_size), bytes.substr(ref.key_size)};
  };
  if (!edit_hash_file(old.table(), file, refs, load, trailer)) return false;
  seal(file);
  return true;
}

void write_urls(const Catalog &catalog, const WriteBatch &batch, const AtomicFile &output, const File &database,
                uint32_t next_number, time_t newest_change) {
  UrlItems refs(catalog.path());
  refs.reserve(batch.count());
  if (catalog.url_map() != nullptr)
    catalog.url_map()->each([&](std::string_view url, uint32_t number) {
      if (batch.of_url(url) == nullptr) refs.add(url, number);
    });
  batch.each_url([&](const Change &change, size_t) {
    if (!is_erased(change)) refs.add_from(batch.url_texts(), change.url_offset, change.url_hash, change.url_size);
  });
  refs.write(output, database, next_number, newest_change);
}

/// origin_of returns the identity of the file that created the catalog, for the trailer of its next snapshot.
FileIdentity origin_of(const Catalog &catalog, const File &database) {
  if (!catalog.exists()) return identity_of(database);
  return catalog.table().trailer() ? catalog.table().trailer()->database : FileIdentity();
}

/// seal_with_index seals a new database with the checksum of the index of its records, and returns that index. The URL
/// map must be made afterwards: it identifies the database by its time of change.
std::string seal_with_index(const File &database) {
  const Catalog written(database.name());
  std::string index = sorted_index(index_entries(written, [](const IndexEntry &, auto) {}));
  Trailer trailer = written.table().trailer().value();
  trailer.content = index_format::checksum_of(index);
  trailer.write(database);
  return index;
}

/// NextFiles are the files of the next state: the database, the index unless it stays, and the URL map unless it is
/// made afterwards.
struct NextFiles {
  explicit NextFiles(std::string catalog, bool with_index) : path(std::move(catalog)), database(path) {
    if (with_index) index.emplace(index_path(path), path);
  }
  /// publish renames the files. Readers and writers ignore a map that does not belong to the database, so a crash
  /// before its rename is harmless; after a crash before that of the index, mend_index writes it.
  void publish() {
    // Only now: while the map was made, most of the database has reached the disk.
    database.sync();
    if (index) index->sync();
    if (urls) urls->sync();
    // Requests between the renames find an index of the old state. One fsync serves both.
    if (index) {
      database.replace();
      after_replacing(path, [&] { index->commit(); });
    } else {
      database.commit();
    }
    if (urls) after_replacing(path, [&] { urls->commit(); });
  }

  const std::string path;
  AtomicFile database;
  std::optional<AtomicFile> index, urls;
};

/// is_unchanged returns true if the next state is the present one.
bool is_unchanged(const Catalog &catalog, const WriteBatch &batch, uint32_t next_number) {
  return batch.empty() && catalog.exists() && !catalog.is_partial() && next_number == catalog.next_number();
}

void write_next(const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
                const ProgressCallback &progress, bool with_index) {
  NextFiles next(catalog.path(), with_index);
  const File &database = next.database.file();
  const time_t newest_change = std::max(catalog.newest_change(), batch.newest_change());
  const Trailer trailer{next_number, 0, origin_of(catalog, database), newest_change};
  const bool edited = edit_database(catalog, batch, database, trailer);
  if (!edited) write_database(catalog, batch, database, trailer, progress);
  if (with_index) next.index->file().write_at(0, seal_with_index(database));
  const UrlMap *old = catalog.url_map();
  if (catalog.exists() && old == nullptr) {
    next.publish();
    after_replacing(catalog.path(), [&] { Catalog(catalog.path()).renew_url_map(lock); });
    return;
  }
  next.urls.emplace(UrlMap::path_for(catalog.path()), catalog.path());
  const Trailer map_trailer{next_number, 0, identity_of(database), newest_change};
  if (!edited || !edit_urls(*old, batch, next.urls->file(), map_trailer))
    write_urls(catalog, batch, *next.urls, database, next_number, newest_change);
  next.publish();
}

/// published_index returns the checksum of the index that was published with a database, or std::nullopt if none was.
std::optional<uint32_t> published_index(const Catalog &catalog) {
  return catalog.exists() && catalog.table().trailer() ? catalog.table().trailer()->content : std::nullopt;
}

/// copy_database writes all records of a catalog to an empty file, and compares them with the index as commit does.
void copy_database(const Catalog &catalog, const File &file, Trailer trailer, const ProgressCallback &progress) {
  const WriteBatch none(catalog);
  if (!edit_database(catalog, none, file, trailer)) write_database(catalog, none, file, trailer, progress);
}

/// is_sealed returns true if a database and its index are as publish has left them.
bool is_sealed(const Catalog &catalog) {
  return catalog.url_map() != nullptr && published_index(catalog) && !has_other_index(catalog);
}

/// renew_index replaces an index that is not of the database.
void renew_index(const Catalog &catalog) {
  if (is_sealed(catalog)) return;
  const KnownRecords known = known_records(catalog);
  const auto check = [&](const IndexEntry &entry, std::string_view record) {
    const std::string fault = known.fault_of(entry, record);
    if (!fault.empty()) throw catalog.refused(entry.number, record, fault);
  };
  std::vector<IndexEntry> entries = index_entries(catalog, check);
  const std::string path = index_path(catalog.path());
  const auto now = status_of(path) ? std::optional(content_of(path)) : std::nullopt;
  if (now != sorted_index(entries)) write_index(path, catalog.path(), std::move(entries));
}

}  // namespace

void commit(const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
            const ProgressCallback &progress) {
  if (!is_unchanged(catalog, batch, next_number)) write_next(lock, catalog, batch, next_number, progress, false);
}

void publish(const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
             const ProgressCallback &progress) {
  if (is_unchanged(catalog, batch, next_number)) return renew_index(catalog);
  write_next(lock, catalog, batch, next_number, progress, true);
}

bool has_other_index(const Catalog &catalog) {
  const std::optional<uint32_t> published = published_index(catalog);
  if (!published) return false;
  const std::string path = index_path(catalog.path());
  return !status_of(path) || index_format::checksum_of(content_of(path)) != *published;
}

bool mend_index(const Lock &, const Catalog &catalog) {
  if (!has_other_index(catalog)) return false;
  std::vector<IndexEntry> entries = index_entries(catalog, [](const IndexEntry &, auto) {});
  if (index_format::checksum_of(sorted_index(entries)) != *published_index(catalog)) return false;
  write_index(index_path(catalog.path()), catalog.path(), std::move(entries));
  return true;
}

void check_copy(const Catalog &catalog, const WriteBatch &batch) {
  if (!batch.empty() || catalog.is_partial())
    catalog.each_to_copy([](uint32_t, std::string_view) {}, changed_numbers(batch));
}

void back_up(const Catalog &catalog, const std::string &target, const ProgressCallback &progress) {
  AtomicFile file(target, catalog.path());
  const std::optional<uint32_t> published = published_index(catalog);
  const Trailer trailer{catalog.next_number(), 0, origin_of(catalog, file.file()), catalog.newest_change()};
  copy_database(catalog, file.file(), trailer, progress);
  const std::string index = seal_with_index(file.file());
  // Without the index, only the checksum tells whether the records are sound.
  if (published && index_format::checksum_of(index) != *published && !status_of(index_path(catalog.path())))
    throw Failure(index_path(catalog.path()) + " is missing, and the records are not those that were published: " +
                  "another program has changed them, or they are damaged; \"minidba index\" accepts them");
  file.sync();
  file.commit();
}

void check_backup(const Catalog &backup) {
  const std::optional<uint32_t> published = published_index(backup);
  if (!published) throw Failure("not a backup: " + backup.path() + ": it has no checksum");
  const std::string index = sorted_index(index_entries(backup, [](const IndexEntry &, auto) {}));
  if (index_format::checksum_of(index) != *published)
    throw Failure("damaged backup: " + backup.path() + ": its records do not have its checksum");
}

void restore(const Lock &, const Catalog &backup, const std::string &database, const UsedNumbers &used,
             const ProgressCallback &progress) {
  check_backup(backup);
  const uint32_t next_number = later(backup.next_number(), used.next_number);
  const time_t newest_change = std::max(backup.newest_change(), used.newest_change);
  NextFiles next(database, true);
  const File &file = next.database.file();
  copy_database(backup, file, {next_number, 0, origin_of(backup, file), newest_change}, progress);
  next.index->file().write_at(0, seal_with_index(file));
  UrlItems items(database);
  backup.each_url([&](std::string_view url, uint32_t number) { items.add(url, number); });
  next.urls.emplace(UrlMap::path_for(database), database);
  items.write(*next.urls, file, next_number, newest_change);
  next.publish();
}

void rebuild_catalog(const Lock &, const Catalog &catalog, const WriteBatch &dropped,
                     const ProgressCallback &progress) {
  const uint32_t next_number = catalog.free_number();
  NextFiles next(catalog.path(), false);
  const File &database = next.database.file();
  const Trailer trailer{next_number, 0, origin_of(catalog, database), catalog.newest_change()};
  write_database(catalog, dropped, database, trailer, progress);
  UrlItems refs(catalog.path());
  catalog.each([&](uint32_t number, std::string_view record) {
    if (dropped.of_number(number) == nullptr) refs.add(*url_of(record), number);
  });
  next.urls.emplace(UrlMap::path_for(catalog.path()), catalog.path());
  refs.write(*next.urls, database, next_number, catalog.newest_change());
  next.publish();
}

std::optional<Lock> lock_for_writing(const std::string &database, const WriteSettings &settings) {
  if (settings.if_missing == IfMissing::error && !status_of(database)) throw Failure("no such database: " + database);
  if (settings.dry_run) return std::nullopt;
  return Lock(database, settings.lock_timeout, settings.waiting);
}

Catalog open_locked(Lock *lock, const std::string &database, IfMissing if_missing) {
  try {
    return Catalog(database, if_missing);
  } catch (const Failure &) {
    if (lock != nullptr) lock->withdraw();
    throw;
  }
}

WriteTransaction::WriteTransaction(const std::string &database, const WriteSettings &settings)
    : damage_(settings.damage),
      lock_(lock_for_writing(database, settings)),
      catalog_(open_locked(lock_ ? &*lock_ : nullptr, database, settings.if_missing)) {
  mend();
  settings.prepare(catalog_);
  if (settings.if_missing == IfMissing::error) begin();
}

/// mend does not fail: a damaged record must not keep a verb from repairing the catalog.
void WriteTransaction::mend() const try {
  if (!lock_) return;
  const std::string index = index_path(catalog_.path());
  const bool is_missing = !status_of(index);
  if (mend_index(*lock_, catalog_))
    damage_("mended: " + index + ": it was " + (is_missing ? "missing" : "not the index of this database") +
            ", and is written again from the records");
  else if (is_missing && has_other_index(catalog_))
    damage_(index +
            " is missing, and the records are not those that were published: another program has changed them, "
            "or they are damaged");
} catch (const Failure &failure) {
  damage_(std::string("the index is not of this database and cannot be mended: ") + failure.what());
}

void WriteTransaction::begin() {
  if (catalog_.is_partial()) return;
  if (catalog_.drop_damaged_map())
    damage_("damaged: " + UrlMap::path_for(catalog_.path()) + ": the URLs are read from the records");
  if (lock_) catalog_.renew_url_map(*lock_);
}

std::optional<time_t> WriteTransaction::date(WriteBatch &batch, const std::function<time_t()> &clock) const {
  if (!lock_ || !batch.is_undated()) return std::nullopt;
  // newest_change may read the whole catalog: read the clock afterwards.
  const time_t newest = std::max(catalog_.newest_change(), batch.newest_change());
  const time_t time = next_change(newest, clock());
  batch.set_dates(time);
  return time;
}

void WriteTransaction::commit(const WriteBatch &batch, uint32_t next_number, const ProgressCallback &progress) const {
  if (!lock_) return check_copy(catalog_, batch);
  catalog::commit(*lock_, catalog_, batch, next_number, progress);
}

void WriteTransaction::publish(const WriteBatch &batch, uint32_t next_number, const ProgressCallback &progress) const {
  if (!lock_) return check_copy(catalog_, batch);
  catalog::publish(*lock_, catalog_, batch, next_number, progress);
}

void WriteTransaction::rebuild(const WriteBatch &dropped, const ProgressCallback &progress) const {
  if (lock_) rebuild_catalog(*lock_, catalog_, dropped, progress);
}

}  // namespace rdm::catalog
