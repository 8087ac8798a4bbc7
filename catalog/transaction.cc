// SPDX-License-Identifier: MIT
#include "catalog/transaction.h"

#include "catalog/change_times.h"
#include "catalog/hash/editor.h"
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

void publish(const Catalog &catalog, AtomicFile &database, AtomicFile &urls) {
  // Only now: while the map was made, most of the database has reached the disk.
  database.sync();
  urls.sync();
  // Readers and writers ignore a map that does not belong to the database, so a crash between the renames is harmless.
  database.commit();
  after_replacing(catalog.path(), [&] { urls.commit(); });
}

}  // namespace

void commit(const Lock &lock, const Catalog &catalog, const WriteBatch &batch, uint32_t next_number,
            const ProgressCallback &progress) {
  if (batch.empty() && catalog.exists() && !catalog.is_partial() && next_number == catalog.next_number()) return;
  AtomicFile database(catalog.path());
  const time_t newest_change = std::max(catalog.newest_change(), batch.newest_change());
  const Trailer trailer{next_number, 0, origin_of(catalog, database.file()), newest_change};
  const bool edited = edit_database(catalog, batch, database.file(), trailer);
  if (!edited) write_database(catalog, batch, database.file(), trailer, progress);
  const UrlMap *old = catalog.url_map();
  if (catalog.exists() && old == nullptr) {
    database.sync();
    database.commit();
    after_replacing(catalog.path(), [&] { Catalog(catalog.path()).renew_url_map(lock); });
    return;
  }
  AtomicFile urls(UrlMap::path_for(catalog.path()), catalog.path());
  const Trailer map_trailer{next_number, 0, identity_of(database.file()), newest_change};
  if (!edited || !edit_urls(*old, batch, urls.file(), map_trailer))
    write_urls(catalog, batch, urls, database.file(), next_number, newest_change);
  publish(catalog, database, urls);
}

void check_copy(const Catalog &catalog, const WriteBatch &batch) {
  if (!batch.empty() || catalog.is_partial())
    catalog.each_to_copy([](uint32_t, std::string_view) {}, changed_numbers(batch));
}

void rebuild_catalog(const Lock &, const Catalog &catalog, const WriteBatch &dropped,
                     const ProgressCallback &progress) {
  const uint32_t next_number = catalog.free_number();
  AtomicFile database(catalog.path());
  const Trailer trailer{next_number, 0, origin_of(catalog, database.file()), catalog.newest_change()};
  write_database(catalog, dropped, database.file(), trailer, progress);
  UrlItems refs(catalog.path());
  catalog.each([&](uint32_t number, std::string_view record) {
    if (dropped.of_number(number) == nullptr) refs.add(*url_of(record), number);
  });
  AtomicFile urls(UrlMap::path_for(catalog.path()), catalog.path());
  refs.write(urls, database.file(), next_number, catalog.newest_change());
  publish(catalog, database, urls);
}

std::optional<Lock> lock_for_writing(const std::string &database, const WriteSettings &settings) {
  if (settings.if_missing == IfMissing::error && !status_of(database)) throw Failure("no such database: " + database);
  if (settings.dry_run) return std::nullopt;
  return Lock(database, settings.lock_timeout, settings.waiting);
}

WriteTransaction::WriteTransaction(const std::string &database, const WriteSettings &settings)
    : damage_(settings.damage), lock_(lock_for_writing(database, settings)), catalog_(database, settings.if_missing) {
  settings.prepare(catalog_);
  if (settings.if_missing == IfMissing::error) begin();
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

void WriteTransaction::rebuild(const WriteBatch &dropped, const ProgressCallback &progress) const {
  if (lock_) rebuild_catalog(*lock_, catalog_, dropped, progress);
}

}  // namespace rdm::catalog
