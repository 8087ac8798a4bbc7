#include "catalog/transaction.h"

#include "catalog/change_times.h"
#include "catalog/hash/editor.h"
#include "catalog/os/error.h"
#include "catalog/record.h"

namespace catalog {
namespace {

using Change = Changes::Change;

bool is_erased(const Change &change) { return change.record_size == Changes::erased; }

/// Places of items: a change has the offset of its key in the scratch file, a description that stays has its number,
/// below zero.
int64_t place_of(uint32_t number) { return -1 - int64_t{number}; }
uint32_t number_at(int64_t place) { return static_cast<uint32_t>(-1 - place); }

Item item_of(const Change &change) {
  return {hash_of(database_key(change.number)), database_key_size,
          is_erased(change) ? erased_value : change.record_size, change.offset + change.url_size};
}

/// Texts brings the bytes of items.
class Texts {
 public:
  Texts(const Catalog &catalog, const Changes &changes) : catalog_(catalog), changes_(changes) {}

  Record operator()(const Item &item) {
    const size_t value = item.value_size == erased_value ? 0 : item.value_size;
    if (item.place >= 0)
      text_ = changes_.text(item.place, item.key_size + value);
    else
      text_ = database_key(number_at(item.place)) + copied(number_at(item.place));
    const std::string_view text = text_;
    return {text.substr(0, item.key_size), text.substr(item.key_size)};
  }

 private:
  std::string copied(uint32_t number) const {
    std::optional<std::string> record = catalog_.get(number);
    if (!record) throw catalog_.refused(number, {}, "it is not found by its key");
    return *std::move(record);
  }

  const Catalog &catalog_;
  const Changes &changes_;
  std::string text_;
};

/// is_changed chooses the numbers whose descriptions are not copied.
Catalog::Chosen is_changed(const Changes &changes) {
  return [&changes](uint32_t number) { return changes.of_number(number) != nullptr; };
}

/// edit_database returns whether the next snapshot could be made of the old one.
bool edit_database(const Catalog &catalog, const Changes &changes, const File &file, Stamp stamp) {
  if (!catalog.exists() || catalog.is_partial()) return false;
  std::vector<Item> items;
  changes.each_number([&](const Change &change) { items.push_back(item_of(change)); });
  const auto check = [&](std::string_view key, std::string_view record) {
    catalog.check_copied(key, record, is_changed(changes));
  };
  return edit_hash_file(catalog.table(), file, items, Texts(catalog, changes), stamp, check);
}

void write_database(const Catalog &catalog, const Changes &changes, const File &file, Stamp stamp, const Watch &watch) {
  std::vector<Item> items;
  const auto add = [&](uint32_t number, std::string_view record) {
    items.push_back(
        {hash_of(database_key(number)), database_key_size, static_cast<uint32_t>(record.size()), place_of(number)});
  };
  catalog.each_to_copy(add, is_changed(changes));
  changes.each_number([&](const Change &change) {
    if (!is_erased(change)) items.push_back(item_of(change));
  });
  int64_t total = 0;
  for (const Item &item : items) total += int64_t{item.key_size} + item.value_size;
  write_hash_file(file, items, Texts(catalog, changes), stamp, [&](int64_t, int64_t bytes) { watch(bytes, total); });
}

/// differs says whether a change puts another number behind its URL than the old map has.
bool differs(const UrlMap &old, const Changes &changes, const Change &change) {
  return is_erased(change) || old.number_of(changes.url(change)) != change.number;
}

bool edit_urls(const UrlMap &old, const Changes &changes, const File &file, Stamp stamp) {
  std::vector<Item> items;
  changes.each_url([&](const Change &change) {
    if (differs(old, changes, change))
      items.push_back(
          {change.url_hash, change.url_size, is_erased(change) ? erased_value : database_key_size, change.offset});
  });
  std::string text;
  const Fetch fetch = [&](const Item &item) {
    text = changes.text(item.place, item.key_size + database_key_size);
    const std::string_view bytes = text;
    return Record{bytes.substr(0, item.key_size), bytes.substr(item.key_size)};
  };
  if (!edit_hash_file(old.table(), file, items, fetch, stamp)) return false;
  seal(file);
  return true;
}

void write_urls(const Catalog &catalog, const Changes &changes, const Snapshot &snapshot, const File &database,
                uint32_t next_number, time_t newest_change) {
  UrlItems items(catalog.path());
  if (catalog.url_map() != nullptr)
    catalog.url_map()->each([&](std::string_view url, uint32_t number) {
      if (changes.of_url(url) == nullptr) items.add(url, number);
    });
  changes.each_url([&](const Change &change) {
    if (!is_erased(change)) items.add(changes.url(change), change.number);
  });
  items.write(snapshot, database, next_number, newest_change);
}

/// origin_of returns what the database's stamp keeps from one state of a catalog to the next.
FileIdentity origin_of(const Catalog &catalog, const File &database) {
  if (!catalog.exists()) return identity_of(database);
  return catalog.table().stamp() ? catalog.table().stamp()->database : FileIdentity();
}

void publish(const Catalog &catalog, Snapshot &database, Snapshot &urls) {
  urls.sync();
  // The database first: a map that is behind is noticed and made anew, one that is ahead would be too.
  database.commit();
  after_replacing(catalog.path(), [&] { urls.commit(); });
}

}  // namespace

void commit(const Lock &lock, const Catalog &catalog, const Changes &changes, uint32_t next_number,
            const Watch &watch) {
  if (changes.empty() && catalog.exists() && !catalog.is_partial() && next_number == catalog.next_number()) return;
  Snapshot database(catalog.path());
  const time_t newest_change = std::max(catalog.newest_change(), changes.newest_change());
  const Stamp stamp{next_number, 0, origin_of(catalog, database.file()), newest_change};
  const bool edited = edit_database(catalog, changes, database.file(), stamp);
  if (!edited) write_database(catalog, changes, database.file(), stamp, watch);
  database.sync();
  const UrlMap *old = catalog.url_map();
  if (catalog.exists() && old == nullptr) {
    database.commit();
    after_replacing(catalog.path(), [&] { Catalog(catalog.path()).renew_url_map(lock); });
    return;
  }
  Snapshot urls(UrlMap::path_for(catalog.path()), catalog.path());
  const Stamp map_stamp{next_number, 0, identity_of(database.file()), newest_change};
  if (!edited || !edit_urls(*old, changes, urls.file(), map_stamp))
    write_urls(catalog, changes, urls, database.file(), next_number, newest_change);
  publish(catalog, database, urls);
}

void check_copy(const Catalog &catalog, const Changes &changes) {
  if (!changes.empty() || catalog.is_partial())
    catalog.each_to_copy([](uint32_t, std::string_view) {}, is_changed(changes));
}

void rebuild_catalog(const Lock &, const Catalog &catalog, const Changes &dropped, const Watch &watch) {
  const uint32_t next_number = catalog.free_number();
  Snapshot database(catalog.path());
  const Stamp stamp{next_number, 0, origin_of(catalog, database.file()), catalog.newest_change()};
  write_database(catalog, dropped, database.file(), stamp, watch);
  database.sync();
  UrlItems items(catalog.path());
  catalog.each([&](uint32_t number, std::string_view record) {
    if (dropped.of_number(number) == nullptr) items.add(*url_of(record), number);
  });
  Snapshot urls(UrlMap::path_for(catalog.path()), catalog.path());
  items.write(urls, database.file(), next_number, catalog.newest_change());
  publish(catalog, database, urls);
}

std::optional<Lock> lock_for_writing(const std::string &database, const WriteSettings &settings) {
  if (settings.absent == Absent::error && !status_of(database)) throw Failure("not there: " + database);
  if (settings.dry_run) return std::nullopt;
  return Lock(database, settings.lock_timeout, settings.waiting);
}

WriteTransaction::WriteTransaction(const std::string &database, const WriteSettings &settings)
    : damage_(settings.damage), lock_(lock_for_writing(database, settings)), catalog_(database, settings.absent) {
  settings.prepare(catalog_);
  if (settings.absent == Absent::error) begin();
}

void WriteTransaction::begin() {
  if (catalog_.is_partial()) return;
  if (catalog_.drop_damaged_map())
    damage_("damaged: " + UrlMap::path_for(catalog_.path()) + ": the URLs are read from the records");
  if (lock_) catalog_.renew_url_map(*lock_);
}

std::optional<time_t> WriteTransaction::date(Changes &batch, const std::function<time_t()> &clock) const {
  if (!lock_ || !batch.is_undated()) return std::nullopt;
  // Looking for the newest time may take a while, so the clock is read afterwards.
  const time_t newest = std::max(catalog_.newest_change(), batch.newest_change());
  const time_t time = next_change(newest, clock());
  batch.stamp(time);
  return time;
}

void WriteTransaction::commit(const Changes &batch, uint32_t next_number, const Watch &watch) const {
  if (!lock_) return check_copy(catalog_, batch);
  catalog::commit(*lock_, catalog_, batch, next_number, watch);
}

void WriteTransaction::rebuild(const Changes &dropped, const Watch &watch) const {
  if (lock_) rebuild_catalog(*lock_, catalog_, dropped, watch);
}

}  // namespace catalog
