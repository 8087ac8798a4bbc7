// SPDX-License-Identifier: MIT
#include "catalog/catalog.h"

#include <algorithm>

#include "catalog/record.h"
#include "catalog/used_numbers.h"
#include "qxapi/escaped.h"

namespace rdm::catalog {
namespace {

constexpr char hint[] = " (--skip-damaged of minidba leaves it out)";

/// checked returns an object or an outline, unless there is none.
template <typename Object>
Object checked(Object object, const Catalog &catalog, uint32_t number, std::string_view record) {
  if (!object) throw catalog.refused(number, record, "it is not a SOIF object");
  return object;
}

}  // namespace

Catalog::Catalog(std::string database, IfMissing if_missing) : path_(std::move(database)) {
  if (if_missing == IfMissing::assumed) return;
  if (!status_of(path_)) {
    if (if_missing == IfMissing::error) throw Failure("no such database: " + path_);
    return;
  }
  table_.emplace(path_);
  urls_ = UrlMap::open(*table_, map_error_);
}

std::optional<std::string> Catalog::get(uint32_t number) const {
  if (!table_ || skipped_.contains(number)) return std::nullopt;
  try {
    return table_->get(database_key(number));
  } catch (const Failure &) {
    if (is_partial()) return std::nullopt;
    throw refused(number, {}, "a page is damaged");
  }
}

std::optional<uint32_t> Catalog::number_of(std::string_view url) const {
  if (!table_) return std::nullopt;
  if (urls_)
    if (const auto number = mapped(url); number || !has_damaged_map()) return number;
  for (uint32_t number : scan().candidates(url)) {
    const auto record = get(number);
    if (record && url_of(*record) == url) return number;
  }
  return std::nullopt;
}

/// mapped returns the number that the map has for a URL, after comparing the URL with the record's URL: with a damaged
/// map, a writer would replace another description. A record that is lost or holds no object keeps its number.
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
  // Another program has written the database and may have used numbers that are not in the trailer.
  const uint32_t free = scan().next_number();
  return table_->trailer() ? later(table_->trailer()->next_number, free) : free;
}

time_t Catalog::newest_change() const {
  if (!newest_change_) newest_change_ = find_newest_change();
  return *newest_change_;
}

time_t Catalog::find_newest_change() const {
  if (!table_) return 0;
  if (urls_ && urls_->newest_change()) return *urls_->newest_change();
  return std::max(newest_given().value_or(0), used_in(*table_).newest_change);
}

std::optional<time_t> Catalog::newest_given() const {
  return table_ && table_->trailer() ? table_->trailer()->newest_change : std::nullopt;
}

void Catalog::each(const Visitor &visit) const {
  if (!table_) return;
  const auto refuse = [this](std::string_view key, std::string_view record, const std::string &what) {
    if (is_partial()) return;
    if (key.empty()) throw Failure(what + hint);
    throw Failure(damaged_key(key, record, what) + hint);
  };
  const auto take = [&](std::string_view key, std::string_view record) {
    const auto number = catalog::number_of(key);
    if (!number || *number == 0) return refuse(key, record, "its key is not a number");
    if (!skipped_.contains(*number)) visit(*number, record);
  };
  table_->each_sound(take, refuse);
}

void Catalog::each_to_copy(const Visitor &visit, const Predicate &skip) const {
  bool is_whole = true;
  each([&](uint32_t number, std::string_view record) {
    if (skip && skip(number)) {
      is_whole = false;
      return;
    }
    if (const std::string fault = is_checked_ ? "" : known_.fault_of(number, record); !fault.empty())
      throw refused(number, record, fault);
    visit(number, record);
  });
  is_checked_ = is_checked_ || is_whole;
}

void Catalog::check_copied(std::string_view key, std::string_view record, const Predicate &skip) const {
  const auto number = catalog::number_of(key);
  if (!number || *number == 0) throw Failure(damaged_key(key, record, "its key is not a number") + hint);
  if (is_checked_ || skip(*number)) return;
  if (const std::string fault = known_.fault_of(*number, record); !fault.empty()) throw refused(*number, record, fault);
}

std::string Catalog::fault_of(uint32_t number, std::string_view record) const {
  const std::string fault = known_.fault_of(number, record);
  return fault.empty() && !url_of(record) ? "it is not a SOIF object" : fault;
}

void Catalog::skip_damaged(const FaultCallback &report) {
  if (!table_) return;
  int64_t count = 0;
  bool is_whole = true;
  const auto leave = [&](const std::string &fault) {
    report(fault);
    ++count;
  };
  const auto refuse = [&](std::string_view key, std::string_view record, const std::string &fault) {
    is_whole = is_whole && !key.empty();
    leave(key.empty() ? fault : damaged_key(key, record, fault));
  };
  const auto take = [&](std::string_view key, std::string_view record) {
    const auto number = catalog::number_of(key);
    if (!number || *number == 0) return refuse(key, record, "its key is not a number");
    const std::string fault = fault_of(*number, record);
    if (fault.empty()) return;
    leave(damaged(*number, record, fault));
    skipped_.insert(*number);
  };
  table_->each_sound(take, refuse);
  if (!is_whole) report_lost(report);
  left_out_ = count;
  is_checked_ = true;
  if (is_partial()) urls_.reset();
}

/// report_lost reports the records that the URL map names and no page holds. The next map will not name them.
void Catalog::report_lost(const FaultCallback &report) const try {
  if (!urls_) return;
  urls_->each([&](std::string_view url, uint32_t number) {
    if (!skipped_.contains(number) && is_lost(number))
      report("lost record " + std::to_string(number) + " (" + std::string(url) + ") in " + path_);
  });
} catch (const Failure &) {
  // The map is damaged too: the records after the damage are not reported.
}

bool Catalog::is_lost(uint32_t number) const try {
  return !table_->get(database_key(number));
} catch (const Failure &) {
  return true;
}

/// url_in_map searches the whole map for the URL of a number.
std::optional<std::string> Catalog::url_in_map(uint32_t number) const {
  std::optional<std::string> found;
  if (!urls_) return found;
  try {
    urls_->each([&](std::string_view url, uint32_t mapped) {
      if (mapped == number) found = url;
    });
  } catch (const Failure &) {
    // A URL that was found before the damage is valid.
  }
  return found;
}

std::string Catalog::damaged(uint32_t number, std::string_view record, const std::string &fault) const {
  const std::optional<std::string> own = url_of(record), url = own ? own : url_in_map(number);
  return "damaged record " + std::to_string(number) + (url ? " (" + *url + ")" : "") + " in " + path_ + ": " + fault;
}

std::string Catalog::damaged_key(std::string_view key, std::string_view record, const std::string &fault) const {
  if (const auto number = catalog::number_of(key); number && *number != 0) return damaged(*number, record, fault);
  return "damaged record \"" + without_controls(key, '?') + "\" in " + path_ + ": " + fault;
}

Failure Catalog::refused(uint32_t number, std::string_view record, const std::string &fault) const {
  return Failure(damaged(number, record, fault) + hint);
}

bool Catalog::hides(uint32_t number) const {
  if (skipped_.contains(number)) return true;
  try {
    if (table_) table_->get(database_key(number));
    return false;
  } catch (const Failure &) {
    return true;
  }
}

bool Catalog::predates(const struct stat &file) const {
  return table_ && table_->trailer() && is_before(file, *table_->trailer());
}

const UrlScan &Catalog::scan() const {
  if (!scan_) {
    scan_.emplace();
    each([this](uint32_t number, std::string_view record) {
      const auto url = url_of(record);
      if (!url) throw refused(number, record, "it is not a SOIF object");
      scan_->add(*url, number);
    });
    scan_->sort();
  }
  return *scan_;
}

void Catalog::each_url(const UrlMap::Visitor &visit) const {
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

bool Catalog::has_damaged_map() const {
  if (!urls_) return false;
  if (!map_is_damaged_) map_is_damaged_ = urls_->is_damaged();
  return *map_is_damaged_;
}

bool Catalog::drop_damaged_map() {
  if (!has_damaged_map()) return false;
  newest_change_ = newest_change();  // the trailer of the map has a checksum of its own
  urls_.reset();
  return true;
}

void Catalog::renew_url_map(const Lock &) {
  if (!table_ || (urls_ && urls_->has_checksum())) return;
  UrlItems items(path_);
  each_url([&](std::string_view url, uint32_t number) { items.add(url, number); });
  AtomicFile output(UrlMap::path_for(path_), path_);
  items.write(output, table_->file(), free_number(), newest_change());
  output.sync();
  output.commit();
  urls_ = UrlMap::open(*table_, map_error_);
  map_is_damaged_.reset();
}

std::string index_path(const std::string &database) { return database + ".idx"; }

KnownRecords known_records(const Catalog &catalog, const std::string &index,
                           const std::function<void(const std::string &reason)> &unreadable) try {
  const std::string path = index.empty() ? index_path(catalog.path()) : index;
  const auto status = status_of(path);
  if (!catalog.exists() || !status || catalog.predates(*status)) return KnownRecords();
  if (index.empty()) require_regular(path);
  return KnownRecords(read_index(path), catalog.newest_given());
} catch (const Failure &failure) {
  unreadable(failure.what());
  return KnownRecords();
}

Outline read_outline(const Catalog &catalog, uint32_t number, std::string_view record) {
  LastTime last_time;
  return read_outline(catalog, number, record, last_time);
}

Outline read_outline(const Catalog &catalog, uint32_t number, std::string_view record, LastTime &last_time) {
  return *checked(outline_of(record, last_time), catalog, number, record);
}

SoifPtr parse_record(const Catalog &catalog, uint32_t number, std::string_view record) {
  return checked(parse(record), catalog, number, record);
}

SoifPtr parse_attributes(const Catalog &catalog, uint32_t number, std::string_view record,
                         const std::vector<std::string> &names) {
  return checked(parse_only(record, names), catalog, number, record);
}

}  // namespace rdm::catalog
