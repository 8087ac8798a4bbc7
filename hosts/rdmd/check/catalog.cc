// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/catalog.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <tuple>

#include "dba/guard.h"
#include "dba/index_format.h"
#include "libcs/soif/grammar.h"
#include "qxapi/number.h"

namespace rdm::check {
namespace {

constexpr std::uint32_t hash_magic = 0x061561;
constexpr std::size_t key_size = 8;

/// Entry is an entry of the index.
struct Entry : index_format::Entry {
  bool found = false;  // its record is in the database
};

using Entries = std::vector<Entry>;

/// Comparison counts the results of comparing the entries of an index with the records of a database.
struct Comparison {
  std::size_t same = 0;           // size and checksum match
  std::size_t changed = 0;        // they do not match, and the record has changed since
  std::size_t contradicting = 0;  // they do not match, although the record has not changed since
  std::size_t missing = 0;        // entries without a record
  std::size_t unlisted = 0;       // records without an entry
  std::size_t unreadable = 0;     // unreadable buckets of the database
  std::size_t records() const { return same + changed + contradicting + unlisted; }
};

void check_order(const Entries &entries, Report &report) {
  const auto later = [](const Entry &a, const Entry &b) { return a.time > b.time; };
  const auto place = std::adjacent_find(entries.begin(), entries.end(), later);
  if (place != entries.end())
    report.error(0, "entry " + std::to_string(place - entries.begin() + 2) + " is earlier than the one before it");
}

/// read_index returns the entries sorted by number. Returns std::nullopt, after reporting an error, if the file is not
/// an index.
std::optional<Entries> read_index(Report &report) {
  const auto bytes = read_bytes(report);
  if (!bytes) return std::nullopt;
  if (!index_format::has_magic(*bytes)) {
    report.error(0, "is not an index of a catalog database");
    return std::nullopt;
  }
  const std::uint32_t count = index_format::entry_count(*bytes);
  if (const std::uint64_t expected = index_format::file_size(count); bytes->size() != expected) {
    report.error(0, "has " + std::to_string(bytes->size()) + " bytes; " + std::to_string(count) + " entries take " +
                        std::to_string(expected));
    return std::nullopt;
  }
  Entries entries(count);
  for (std::size_t i = 0; i < count; ++i) entries[i] = {index_format::entry_at(*bytes, i), false};
  check_order(entries, report);
  std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.number < b.number; });
  return entries;
}

DatabasePtr open_database(Report &report) {
  const auto bytes = read_bytes(report, sizeof hash_magic);
  if (!bytes) return nullptr;
  if (bytes->size() < sizeof hash_magic || index_format::word_at(*bytes, 0) != hash_magic) {
    report.error(0, "is not a catalog database");
    return nullptr;
  }
  DatabasePtr database(dba_open(report.file().c_str(), "r"));
  if (!database) report.error(0, "is damaged: its header and its size contradict each other");
  return database;
}

std::optional<std::uint32_t> number_of(std::string_view key) {
  return key.size() == key_size ? parse_number<std::uint32_t>(key, 16) : std::nullopt;
}

/// change_time returns the time of a record's "rd-last-changed", or 0 if it has none.
std::time_t change_time(std::string_view record) {
  constexpr std::string_view attribute = "\nrd-last-changed{";
  const std::size_t start = record.rfind(attribute);
  const std::size_t value = start == std::string_view::npos ? start : record.find(soif::size_end, start);
  if (value == std::string_view::npos) return 0;
  const std::string text(record.substr(value + soif::size_end.size(), 64));
  struct tm fields {};
  return ::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields) != nullptr ? ::timegm(&fields) : 0;
}

void compare_record(std::string_view key, std::string_view record, Entries &entries, Comparison &result) {
  const auto number = number_of(key);
  if (!number) return;
  const auto before = [](const Entry &entry, std::uint32_t wanted) { return entry.number < wanted; };
  const auto entry = std::lower_bound(entries.begin(), entries.end(), *number, before);
  if (entry == entries.end() || entry->number != *number) {
    ++result.unlisted;
    return;
  }
  entry->found = true;
  if (entry->size == record.size() && entry->checksum == index_format::checksum_of(record))
    ++result.same;
  else if (change_time(record) > entry->time)
    ++result.changed;
  else
    ++result.contradicting;
}

Comparison compare(DB *database, Entries &entries) {
  Comparison result;
  DBT key{}, value{};
  for (int step = dba_first(database, &key, &value); step != 1; step = dba_next(database, &key, &value)) {
    if (step < 0)
      ++result.unreadable;
    else
      compare_record({static_cast<const char *>(key.data), key.size},
                     {static_cast<const char *>(value.data), value.size}, entries, result);
  }
  const auto has_record = [](const Entry &entry) { return entry.found; };
  result.missing = entries.size() - static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), has_record));
  return result;
}

/// is_later returns true if `path` was modified after `other`.
bool is_later(const std::string &path, const std::string &other) {
  struct stat one {
  }, two{};
  ::stat(path.c_str(), &one);
  ::stat(other.c_str(), &two);
  return std::tie(one.st_mtim.tv_sec, one.st_mtim.tv_nsec) > std::tie(two.st_mtim.tv_sec, two.st_mtim.tv_nsec);
}

/// contradicts returns true if an index cannot be an older state of its database. Missing or changed records show this
/// only if the index was written after the database. If no entry matches any record, nothing shows that the index
/// belongs to the database.
bool contradicts(const Comparison &found, bool index_is_later) {
  if (found.contradicting > 0) return true;
  if (found.same > 0) return index_is_later && found.missing > 0;
  if (found.changed > 0) return index_is_later;
  return found.missing > 0 && (index_is_later || found.records() > 0);
}

std::string count_of(std::size_t count, const char *one, const char *several) {
  return std::to_string(count) + (count == 1 ? one : several);
}

std::string joined(const std::vector<std::string> &parts) {
  std::string text;
  for (const std::string &part : parts)
    if (!part.empty()) text += (text.empty() ? "" : ", ") + part;
  return text;
}

void report_contradiction(const Comparison &found, std::size_t entries, Report &index) {
  const std::size_t different = found.changed + found.contradicting;
  index.error(
      0,
      "is not the index of this database, or records are damaged: of " + count_of(entries, " entry, ", " entries, ") +
          joined(
              {different > 0 ? count_of(different, " has", " have") + " another size or checksum than the record" : "",
               found.missing > 0 ? count_of(found.missing, " has", " have") + " no record" : ""}) +
          "; see minidba verify");
}

void report_age(const Comparison &found, Report &index) {
  index.warning(
      0, "is older than its database: " +
             joined({found.unlisted > 0 ? count_of(found.unlisted, " record is", " records are") + " not in it" : "",
                     found.changed > 0 ? count_of(found.changed, " has", " have") + " changed since" : "",
                     found.missing > 0 ? count_of(found.missing, " is", " are") + " gone" : ""}) +
             "; rebuild it with minidba index");
}

void compare(DB *database, Entries &entries, Report &report, Report &index) {
  const Comparison found = compare(database, entries);
  if (found.unreadable > 0) {
    report.error(
        0, "is damaged: " + count_of(found.unreadable, " bucket", " buckets") + " cannot be read; see minidba verify");
  } else if (contradicts(found, is_later(index.file(), report.file()))) {
    report_contradiction(found, entries.size(), index);
  } else if (found.unlisted + found.changed + found.missing > 0) {
    report_age(found, index);
  }
}

}  // namespace

void check_catalog(Report &report) {
  Report index = report.on(report.file() + ".idx");
  // Read the index first: a catalog that is being changed then looks like one with an older index.
  std::optional<Entries> entries = read_index(index);
  const DatabasePtr database = open_database(report);
  if (entries && database) compare(database.get(), *entries, report, index);
}

}  // namespace rdm::check
