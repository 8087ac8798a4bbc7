#include "tools/minidba/catalog.h"

#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"
#include "tools/minidba/used_numbers.h"

namespace minidba {

Catalog::Catalog(std::string database, Absent absent) : path_(std::move(database)) {
  if (absent == Absent::assumed) return;
  if (!status_of(path_)) {
    if (absent == Absent::error) throw Failure("not there: " + path_);
    return;
  }
  table_.emplace(path_);
  urls_ = UrlMap::open(*table_, map_obstacle_);
}

std::optional<std::string> Catalog::get(uint32_t number) const {
  return table_ ? table_->get(database_key(number)) : std::nullopt;
}

std::optional<uint32_t> Catalog::number_of(std::string_view url) const {
  if (!table_) return std::nullopt;
  if (urls_) return mapped(url);
  for (uint32_t number : scan().candidates(url)) {
    const auto record = get(number);
    if (record && url_of(*record) == url) return number;
  }
  return std::nullopt;
}

/// mapped asks the map, and what it leads to: a writer that believed a damaged map would put one description in the
/// place of another. A description that is lost, or no object any more, keeps its number.
std::optional<uint32_t> Catalog::mapped(std::string_view url) const {
  const std::optional<uint32_t> number = urls_->number_of(url);
  if (!number) return number;
  const std::optional<std::string> record = get(*number);
  const bool is_wrong = record ? url_of(*record).value_or(std::string(url)) != url : *number - 1 >= next_number() - 1;
  if (is_wrong) throw Failure("damaged record " + std::string(url) + " in " + urls_->table().path());
  return number;
}

uint32_t Catalog::next_number() const {
  if (!table_) return 1;
  if (urls_) return urls_->next_number();
  // Another program has changed the database, or made it, and may have given numbers of which the stamp knows nothing.
  const uint32_t free = scan().next_number();
  return table_->stamp() ? later(table_->stamp()->next_number, free) : free;
}

time_t Catalog::newest_change() const {
  if (!newest_change_) newest_change_ = find_newest_change();
  return *newest_change_;
}

time_t Catalog::find_newest_change() const {
  if (!table_) return 0;
  if (urls_ && urls_->newest_change()) return *urls_->newest_change();
  const time_t stamped = table_->stamp() ? table_->stamp()->newest_change.value_or(0) : 0;
  return std::max(stamped, used_in(*table_).newest_change);
}

void Catalog::each(const Visit &visit) const {
  if (!table_) return;
  table_->each([&](std::string_view key, std::string_view record) {
    const auto number = minidba::number_of(key);
    if (!number) throw Failure("damaged record " + std::string(key) + " in " + path_);
    visit(*number, record);
  });
}

const UrlScan &Catalog::scan() const {
  if (!scan_) {
    scan_.emplace();
    each([this](uint32_t number, std::string_view record) {
      const auto url = url_of(record);
      if (!url) throw Failure("damaged record " + database_key(number) + " in " + path_);
      scan_->add(*url, number);
    });
    scan_->sort();
  }
  return *scan_;
}

void Catalog::each_url(const UrlMap::Visit &visit) const {
  const UrlScan &numbers = scan();
  each([&](uint32_t number, std::string_view record) {
    const std::string url = *url_of(record);
    for (const uint32_t other : numbers.candidates(url)) {
      if (other == number) return visit(url, number);
      if (url_of(get(other).value_or("")) == url) return;
    }
  });
}

uint32_t Catalog::free_number() const { return later(next_number(), scan().next_number()); }

void Catalog::renew_url_map(const Lock &) {
  if (!table_ || urls_) return;
  UrlItems items(path_);
  each_url([&](std::string_view url, uint32_t number) { items.add(url, number); });
  Snapshot snapshot(UrlMap::path_for(path_), path_);
  items.write(snapshot, table_->file(), free_number(), newest_change());
  snapshot.sync();
  snapshot.commit();
  urls_ = UrlMap::open(*table_, map_obstacle_);
}

}  // namespace minidba
