// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "catalog/catalog.h"
#include "catalog/hash/page_map.h"
#include "catalog/hash/statistics.h"
#include "catalog/index_file.h"
#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/transaction.h"
#include "dba/guard.h"
#include "qxapi/counted.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/describe.h"
#include "tools/minidba/output/faults.h"
#include "tools/minidba/output/progress.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

/// Behind counts the differences between an older index and the database.
struct Behind {
  int64_t added = 0, changed = 0, removed = 0;
  bool is_earlier = false;  // the index belongs to a replaced catalog
  bool any() const { return is_earlier || added + changed + removed > 0; }
};

/// Findings is the data for the verdict.
struct Findings {
  Faults faults;
  std::vector<IndexEntry> descriptions;             // their right index entries, sorted by number
  std::vector<std::pair<uint64_t, uint32_t>> urls;  // hash and number, if there is no map
  bool has_map = false;
  std::optional<int64_t> indexed;  // std::nullopt without an index
  Behind behind;
  bool is_other_index = false;  // the database was published with another index than the one beside it
  bool is_short = false;        // the database has fewer records than it counts
};

std::string named(uint32_t number) { return "description " + std::to_string(number); }

/// readable returns the record of a number, or std::nullopt if it is not found by its key or is damaged.
std::optional<std::string> readable(const Catalog &catalog, uint32_t number) {
  try {
    return catalog.get(number);
  } catch (const Failure &) {
    return std::nullopt;
  }
}

void add_wrong_url(Faults &faults, uint32_t number, std::optional<uint32_t> other, const std::string &url) {
  faults.add("the URL of " + named(number) + " leads to " + (other ? std::to_string(*other) : "nothing") + ": " + url);
}

/// mapped returns the number that the map has for a URL, or std::nullopt if the bucket is damaged.
std::optional<uint32_t> mapped(const UrlMap &map, const std::string &url) {
  try {
    return map.number_of(url);
  } catch (const Failure &) {
    return std::nullopt;
  }
}

void check_url(const Catalog &catalog, uint32_t number, const std::string &url, Findings &findings) {
  if (const UrlMap *map = catalog.url_map()) {
    const std::optional<uint32_t> other = mapped(*map, url);
    if (other != number) add_wrong_url(findings.faults, number, other, url);
  } else {
    findings.urls.emplace_back(std::hash<std::string>()(url), number);
  }
}

void check_record(const Catalog &catalog, std::string_view key, const std::string &record, Findings &findings) {
  const std::optional<uint32_t> number = number_of(key);
  if (!number || *number == 0) return findings.faults.add("a record has a key that is no number");
  if (readable(catalog, *number) != record) findings.faults.add(named(*number) + " is not found by its key");
  const SoifPtr object = parse(record);
  if (!object) return findings.faults.add(named(*number) + " is not a SOIF object");
  if (print(object.get()) != record) findings.faults.add(named(*number) + " is not as it would be printed");
  check_url(catalog, *number, object->url, findings);
  findings.descriptions.push_back(entry_of(*number, record, change_time(object.get())));
}

bool by_number(const IndexEntry &a, const IndexEntry &b) { return a.number < b.number; }

/// check_records reads every record with the reader of the service. A damaged page hides only the records after it.
void check_records(const Catalog &catalog, Findings &findings, Progress &progress) {
  const DatabasePtr database(dba_open(catalog.path().c_str(), "r"));
  if (!database) throw system_failure("cannot open " + catalog.path());
  DBT key{}, value{};
  int64_t records = 0;
  for (int result = dba_first(database.get(), &key, &value); result != 1;
       result = dba_next(database.get(), &key, &value)) {
    if (result < 0) {
      findings.faults.add("a page is damaged");
      continue;
    }
    ++records;
    const std::string record(static_cast<const char *>(value.data), value.size);
    check_record(catalog, {static_cast<const char *>(key.data), key.size}, record, findings);
    progress.advance(1, static_cast<int64_t>(record.size()));
  }
  // The hash library may count too few records, which does no harm. If it counts more than there are, records are lost.
  const int64_t claimed = statistics_of(catalog.path()).records;
  findings.is_short = claimed > records;
  if (findings.is_short)
    findings.faults.add("the database counts " + counted(claimed, "record") + " and has " + std::to_string(records));
  std::sort(findings.descriptions.begin(), findings.descriptions.end(), by_number);
  const auto twice = [](const IndexEntry &a, const IndexEntry &b) { return a.number == b.number; };
  const auto &known = findings.descriptions;
  for (auto at = known.begin(); (at = std::adjacent_find(at, known.end(), twice)) != known.end(); ++at)
    findings.faults.add(named(at->number) + " is there twice");
}

/// check_pages finds pages that the next writer would overwrite although they are in use.
void check_pages(const HashTable &table, Faults &faults) {
  try {
    const PageMap use(table);
    if (use.is_shared()) faults.add("a page is used twice: " + table.path());
    if (table.trailer() && !use.bitmaps_match()) faults.add("the free pages are marked wrongly: " + table.path());
  } catch (const Failure &failure) {
    faults.add(failure.what());
  }
}

const IndexEntry *find(const std::vector<IndexEntry> &by_number_sorted, uint32_t number) {
  const auto found =
      std::lower_bound(by_number_sorted.begin(), by_number_sorted.end(), IndexEntry{0, 0, number, 0, 0}, by_number);
  return found != by_number_sorted.end() && found->number == number ? &*found : nullptr;
}

/// check_same_urls finds URLs of several descriptions if there is no map.
void check_same_urls(const Catalog &catalog, Findings &findings) {
  auto &urls = findings.urls;
  std::sort(urls.begin(), urls.end());
  for (size_t i = 1, first = 0; i < urls.size(); ++i) {
    if (urls[i].first != urls[first].first) first = i;
    if (i == first) continue;
    const auto known = url_of(readable(catalog, urls[first].second).value_or(""));
    const auto other = url_of(readable(catalog, urls[i].second).value_or(""));
    if (known && known == other) add_wrong_url(findings.faults, urls[i].second, urls[first].second, *other);
  }
}

void check_next_number(const Catalog &catalog, Findings &findings) {
  const uint32_t next = catalog.next_number();
  if (next != 0 && !findings.descriptions.empty() && next <= findings.descriptions.back().number)
    findings.faults.add("the next number " + std::to_string(next) + " is in use");
}

/// check_map finds URLs without a description. check_url has found descriptions whose URL is mapped to another number.
void check_map(const Catalog &catalog, Findings &findings) {
  const UrlMap *map = catalog.url_map();
  findings.has_map = map != nullptr;
  if (!catalog.map_error().empty()) findings.faults.add(catalog.map_error());
  if (map == nullptr) return check_same_urls(catalog, findings);
  try {
    if (catalog.has_damaged_map()) findings.faults.add("the URL map is not as it was written: " + map->table().path());
    map->each([&](std::string_view url, uint32_t number) {
      if (find(findings.descriptions, number) == nullptr)
        findings.faults.add("the URL map has " + named(number) + ", which is not there: " + std::string(url));
    });
  } catch (const Failure &failure) {
    findings.faults.add(failure.what());
  }
  check_next_number(catalog, findings);
}

/// fault_of_entry returns the fault of an index entry. If the description has only changed since the index was made, it
/// counts the change and returns an empty text.
std::string fault_of_entry(const Catalog &catalog, const KnownRecords &known, const IndexEntry &entry,
                           const IndexEntry &description, Behind &behind) {
  if (entry == description) return {};
  if (entry.reserved != 0 || (entry.size == description.size && entry.checksum == description.checksum))
    return "the index entry of " + named(entry.number) + " is wrong";
  const std::string record = readable(catalog, entry.number).value_or("");
  const std::string fault = known.fault_of(description, record);
  if (!fault.empty()) return catalog.damaged(entry.number, record, fault);
  if (description.time < entry.time)
    return "the index entry of " + named(entry.number) + " is newer than the description";
  ++behind.changed;
  return {};
}

/// check_unindexed checks descriptions without an entry. The time of change of a description that was added after the
/// index was made is not before the newest time in the index.
void check_unindexed(const KnownRecords &known, Findings &findings) {
  uint32_t newest = 0;
  for (const IndexEntry &entry : known.entries()) newest = std::max(newest, entry.time);
  for (const IndexEntry &description : findings.descriptions) {
    if (known.find(description.number) != nullptr) continue;
    if (description.time != 0 && description.time < newest)
      findings.faults.add(named(description.number) + " is not in the index");
    else
      ++findings.behind.added;
  }
}

/// check_removed checks entries without a description. It was removed, unless records are lost.
void check_removed(const Catalog &catalog, const KnownRecords &known, Findings &findings) {
  for (const IndexEntry &entry : known.entries()) {
    // check_record has reported a record that is not a description.
    if (find(findings.descriptions, entry.number) != nullptr || readable(catalog, entry.number)) continue;
    if (entry.number == 0 || findings.is_short || catalog.hides(entry.number))
      findings.faults.add("the index has " + named(entry.number) + ", which is not there");
    else
      ++findings.behind.removed;
  }
}

void check_entries(const Catalog &catalog, std::vector<IndexEntry> entries, Findings &findings) {
  Faults &faults = findings.faults;
  if (!std::is_sorted(entries.begin(), entries.end(), precedes)) faults.add("the index is not sorted");
  const KnownRecords known(std::move(entries), catalog.newest_given());
  for (size_t i = 0; i < known.entries().size(); ++i) {
    const IndexEntry &entry = known.entries()[i];
    const IndexEntry *description = find(findings.descriptions, entry.number);
    if (i > 0 && entry.number == known.entries()[i - 1].number)
      faults.add("the index has " + named(entry.number) + " twice");
    else if (description != nullptr)
      if (const std::string fault = fault_of_entry(catalog, known, entry, *description, findings.behind);
          !fault.empty())
        faults.add(fault);
  }
  check_unindexed(known, findings);
  check_removed(catalog, known, findings);
}

/// check_index does not check the entries of an index that belongs to a replaced catalog.
void check_index(const Options &options, const Catalog &catalog, Findings &findings) {
  const std::optional<std::string> path = index_of(options);
  if (!path) return;
  findings.indexed = 0;
  try {
    std::vector<IndexEntry> entries = read_index(*path);
    findings.indexed = static_cast<int64_t>(entries.size());
    const auto status = status_of(*path);
    findings.behind.is_earlier = status && catalog.predates(*status);
    if (!findings.behind.is_earlier) check_entries(catalog, std::move(entries), findings);
  } catch (const Failure &failure) {
    findings.faults.add(failure.what());
  }
}

std::string note_of(const Findings &findings) {
  const Behind &behind = findings.behind;
  if (findings.is_other_index)
    return "the index is not the one that was published with the database: a command was interrupted between two "
           "renames, or another program has changed one of them; the next command that changes the catalog writes it, "
           "or run minidba index";
  if (behind.is_earlier) return "the index is of an earlier catalog of this name: run minidba index";
  return "the index is older than the database, by " + std::to_string(behind.added) + " new, " +
         std::to_string(behind.changed) + " changed and " + std::to_string(behind.removed) +
         " removed descriptions: run minidba index";
}

std::string text_verdict(const Findings &findings) {
  if (const int64_t count = findings.faults.count(); count > 0) return "damaged: " + counted(count, "fault");
  return "sound: " + counted(findings.descriptions.size(), "description") + ", " +
         (findings.indexed ? counted(*findings.indexed, "index entry", "index entries") : "no index") +
         (findings.has_map ? "" : ", no URL map") + (findings.behind.any() ? ", index older than the database" : "");
}

Json json_verdict(const Findings &findings) {
  return {{"verb", "verify"},
          {"sound", findings.faults.count() == 0},
          {"descriptions", findings.descriptions.size()},
          {"indexed", findings.indexed ? Json(*findings.indexed) : Json()},
          {"index-older", findings.behind.any()},
          {"url-map", findings.has_map},
          {"fault-count", findings.faults.count()},
          {"faults", findings.faults.texts()}};
}

bool same_file(const struct stat &a, const struct stat &b) {
  return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

/// open returns std::nullopt, and adds a fault, if a readable file is not a database.
std::optional<Catalog> open(const std::string &database, Faults &faults) {
  try {
    return Catalog(database);
  } catch (const Failure &failure) {
    if (::access(database.c_str(), R_OK) != 0) throw;
    faults.add(failure.what());
    return std::nullopt;
  }
}

void check_all(const Options &options, const Console &console, Findings &findings) {
  const auto before = status_of(options.database);
  const std::optional<Catalog> opened = open(options.database, findings.faults);
  if (!opened) return;
  const Catalog &catalog = *opened;
  {
    Progress progress(console, "verifying", before ? before->st_size : 0);
    check_records(catalog, findings, progress);
  }
  check_map(catalog, findings);
  check_pages(catalog.table(), findings.faults);
  if (const UrlMap *map = catalog.url_map()) check_pages(map->table(), findings.faults);
  check_index(options, catalog, findings);
  findings.is_other_index = (findings.behind.any() || !findings.indexed) && has_other_index(catalog);
  const auto after = status_of(options.database);
  if (!before || !after || !same_file(*before, *after))
    throw Failure("database changed while it was verified: " + options.database);
}

}  // namespace

int verify(const Options &options, const Console &console) {
  Findings findings{Faults(console.errors), {}, {}, false, std::nullopt, {}};
  check_all(options, console, findings);
  findings.faults.close();
  // If there are faults without a line, standard error has exactly 101 lines.
  const bool is_behind = findings.behind.any() || findings.is_other_index;
  if (is_behind && !findings.faults.is_full() && !options.quiet)
    console.errors << "minidba: " << note_of(findings) << '\n';
  console.out << (options.json ? text_of(json_verdict(findings)) : text_verdict(findings)) << '\n';
  return findings.faults.count() == 0 ? exit_done : exit_found_fault;
}

}  // namespace rdm::minidba
