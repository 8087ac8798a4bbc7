// SPDX-License-Identifier: MIT
#include <algorithm>
#include <map>
#include <ostream>
#include <unordered_map>

#include "catalog/hash/recovery.h"
#include "catalog/hash/trailer.h"
#include "catalog/known_records.h"
#include "catalog/os/atomic_writer.h"
#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_scan.h"
#include "catalog/url_map.h"
#include "catalog/used_numbers.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

/// Witnesses is the readable data about the records in index and URL map.
struct Witnesses {
  KnownRecords index;
  std::map<uint32_t, std::string> urls;               // of the URL map
  std::unordered_map<std::string, uint32_t> numbers;  // the same by URL
};

/// read_map reads the sound records of the URL map, even if it belongs to another snapshot of the database.
void read_map(const std::string &database, Witnesses &witnesses) try {
  const HashTable table(UrlMap::path_for(database));
  table.each_sound(
      [&](std::string_view url, std::string_view key) {
        const std::optional<uint32_t> number = number_of(key);
        if (!number || *number == 0) return;
        witnesses.urls.emplace(*number, url);
        witnesses.numbers.emplace(url, *number);
      },
      [](std::string_view, std::string_view, const std::string &) {});
} catch (const Failure &) {
  // Without a readable map, only the index names lost records.
}

std::optional<Trailer> trailer_of(const File &database) {
  return database.size() < 512 ? std::nullopt : Trailer::read(database);
}

void read_index_of(const Options &options, const File &database, Witnesses &witnesses) try {
  const std::optional<std::string> path = index_of(options);
  const auto status = path ? status_of(*path) : std::nullopt;
  const std::optional<Trailer> trailer = trailer_of(database);
  if (status && !(trailer && is_before(*status, *trailer)))
    witnesses.index = KnownRecords(read_index(*path), trailer ? trailer->newest_change : std::nullopt);
} catch (const Failure &) {
  // The index is damaged too.
}

/// can_be_imported returns true if an import accepts an object. An import is stricter about attribute names than the
/// parser: after a damaged byte count, part of a value may look like a name.
bool can_be_imported(const SOIF *object) {
  const std::string text = print(object);
  InputWindow window([&](int64_t offset, char *bytes, size_t count) {
    return std::string_view(text).substr(static_cast<size_t>(offset)).copy(bytes, count);
  });
  return SoifScan(window, static_cast<int64_t>(text.size())).fault_of(0).empty();
}

/// Find is the best copy of a record so far.
struct Find {
  int trust = -1;  // the higher the better
  time_t time = 0;
  int64_t offset = 0;  // in the scratch file
  uint32_t size = 0;
  std::string fault;  // KnownRecords::fault_of
};

/// Salvage keeps the best copy of each record in a scratch file.
class Salvage {
 public:
  Salvage(const Witnesses &witnesses, const std::string &database) : witnesses_(witnesses), texts_(database) {}

  void take(RecoveryReader::Origin origin, std::string_view key, std::string_view value) {
    const SoifPtr object = parse(value);
    if (!object || std::string_view(object->url) == "-" || !can_be_imported(object.get())) return;
    const std::optional<uint32_t> number = number_for(origin, key, object->url);
    if (!number) return;
    const time_t time = change_time(object.get());
    const std::string fault = witnesses_.index.fault_of(*number, value);
    const int trust = origin + (fault.empty() ? agreement(*number, value) : -10);
    Find &best = finds_[*number];
    if (std::pair(trust, time) <= std::pair(best.trust, best.time) && best.size > 0) return;
    best = {trust, time, texts_.append(value), static_cast<uint32_t>(value.size()), fault};
  }
  /// drop_same_urls drops all finds of a URL but the best, because an import rejects the others. Returns how many it
  /// drops.
  int64_t drop_same_urls(std::ostream &errors);

  const std::map<uint32_t, Find> &finds() const { return finds_; }
  std::string text_of(const Find &find) const {
    std::string text(find.size, '\0');
    texts_.read(find.offset, text.data(), text.size());
    return text;
  }

 private:
  /// number_for returns the number of a record: the number in its key or, if the key is damaged, the number of its URL.
  /// Returns std::nullopt for an erased record, which a free page may still hold.
  std::optional<uint32_t> number_for(RecoveryReader::Origin origin, std::string_view key,
                                     const std::string &url) const {
    const std::optional<uint32_t> number = number_of(key);
    if (origin == RecoveryReader::in_bucket && number && *number != 0) return number;
    const auto known = witnesses_.numbers.find(url);
    if (known != witnesses_.numbers.end()) return known->second;
    return number && *number != 0 && witnesses_.numbers.empty() ? number : std::nullopt;
  }
  /// agreement returns 10 if size and checksum are equal to the index entry, otherwise 0.
  int agreement(uint32_t number, std::string_view value) const {
    const IndexEntry *known = witnesses_.index.find(number);
    const IndexEntry now = entry_of(number, value, 0);
    return known != nullptr && known->size == now.size && known->checksum == now.checksum ? 10 : 0;
  }

  const Witnesses &witnesses_;
  ScratchFile texts_;
  std::map<uint32_t, Find> finds_;
};

int64_t Salvage::drop_same_urls(std::ostream &errors) {
  std::unordered_map<std::string, uint32_t> best;
  std::vector<uint32_t> dropped;
  for (const auto &[number, find] : finds_) {
    const std::string url = url_of(text_of(find)).value_or("");
    const auto [kept, is_first] = best.emplace(url, number);
    if (is_first) continue;
    const Find &other = finds_[kept->second];
    const bool is_better =
        std::tuple(find.time, find.trust, number) > std::tuple(other.time, other.trust, kept->second);
    const uint32_t older = is_better ? kept->second : number;
    if (is_better) kept->second = number;
    dropped.push_back(older);
    errors << "minidba: description " << older << " is left out: description " << kept->second
           << " is newer and has the same URL: " << escaped(url) << '\n';
  }
  for (const uint32_t number : dropped) finds_.erase(number);
  return static_cast<int64_t>(dropped.size());
}

/// Loss reports and counts lost records.
class Loss {
 public:
  explicit Loss(std::ostream &errors) : errors_(errors) {}

  void name_records(const Witnesses &witnesses, const std::map<uint32_t, Find> &finds) {
    for (const auto &[number, url] : witnesses.urls)
      if (!finds.contains(number)) name("lost: description " + std::to_string(number) + ": " + url, lost_);
    // With a map, a record that only the index names was removed after the index was made.
    for (const IndexEntry &entry : witnesses.index.entries())
      if (witnesses.urls.empty() && !finds.contains(entry.number))
        name("lost, or removed since the index was made: description " + std::to_string(entry.number), lost_);
  }
  /// count_nameless adds the records that the header counts and neither URL map nor index names.
  void count_nameless(int64_t claimed, int64_t found) {
    const int64_t nameless = claimed - found - lost_;
    if (nameless <= 0) return;
    errors_ << "minidba: lost: " << counted(nameless, "description") << " of unknown number: the header counts "
            << claimed << '\n';
    lost_ += nameless;
  }
  void name_damaged(uint32_t number, const std::string &url, const std::string &fault) {
    name("damaged, but written: description " + std::to_string(number) + " (" + url + "): " + fault, damaged_);
  }
  void name_pages(const RecoveryReader &recovery) {
    if (!recovery.header_is_sound())
      errors_ << "minidba: the header is damaged: "
              << (recovery.has_header() ? "it was guessed from the pages\n"
                                        : "records longer than a page are not found without it\n");
    for (const RecoveryReader::Range &range : recovery.unread()) {
      errors_ << "minidba: page" << (range.first == range.last ? " " : "s ") << range.first
              << (range.first == range.last ? "" : " to " + std::to_string(range.last)) << " could not be read\n";
      pages_ += static_cast<int64_t>(range.last - range.first + 1);
    }
    has_header_ = recovery.header_is_sound();
  }
  bool any() const { return lost_ + damaged_ + pages_ > 0 || !has_header_; }
  std::vector<Figure> figures(int64_t salvaged) const {
    return {{"salvaged", salvaged}, {"lost", lost_}, {"damaged", damaged_}, {"pages not read", pages_}};
  }

 private:
  void name(const std::string &text, int64_t &count) {
    errors_ << "minidba: " << escaped(text) << '\n';
    ++count;
  }

  std::ostream &errors_;
  int64_t lost_ = 0, damaged_ = 0, pages_ = 0;
  bool has_header_ = true;
};

using Write = std::function<void(const std::string &text)>;

void write_all(const Salvage &salvage, uint32_t next_number, const Write &write) {
  write(print_header({next_number, static_cast<uint32_t>(salvage.finds().size())}));
  for (const auto &[number, find] : salvage.finds())
    write(with_number(print(parse(salvage.text_of(find)).get()), number));
}

void write_stream(const Salvage &salvage, uint32_t next_number, const Options &options, const Console &console) {
  if (options.file.empty())
    return write_all(salvage, next_number, [&](const std::string &text) { console.out << text; });
  AtomicWriter file(options.file);
  write_all(salvage, next_number, [&](const std::string &text) { file.write(text); });
  file.finish();
  file.commit();
}

/// next_number returns a number above all that the trailers, the finds, the URL map and the index name.
uint32_t next_number(const std::string &database, const Salvage &salvage, const Witnesses &witnesses) {
  uint32_t next = used_numbers(database).next_number;
  if (!salvage.finds().empty()) next = later(next, salvage.finds().rbegin()->first + 1);
  if (!witnesses.urls.empty()) next = later(next, witnesses.urls.rbegin()->first + 1);
  if (!witnesses.index.entries().empty()) next = later(next, witnesses.index.entries().back().number + 1);
  return next;
}

/// summarize calls report. If the stream is written to standard output, it writes the figures to standard error
/// instead.
void summarize(const Options &options, const Console &console, const Loss &loss, int64_t salvaged) {
  if (!options.file.empty()) return report(options, console, {"salvaged", salvaged}, loss.figures(salvaged));
  if (options.quiet) return;
  const char *separator = "minidba: ";
  for (const Figure &figure : loss.figures(salvaged)) {
    console.errors << separator << figure.value << ' ' << figure.name;
    separator = ", ";
  }
  console.errors << '\n';
}

}  // namespace

int salvage(const Options &options, const Console &console) {
  RecoveryReader recovery(options.database);
  Witnesses witnesses;
  read_map(options.database, witnesses);
  read_index_of(options, recovery.file(), witnesses);
  Salvage salvage(witnesses, options.database);
  recovery.each([&](RecoveryReader::Origin origin, std::string_view key, std::string_view value) {
    salvage.take(origin, key, value);
  });
  const int64_t dropped = salvage.drop_same_urls(console.errors);
  Loss loss(console.errors);
  loss.name_pages(recovery);
  loss.name_records(witnesses, salvage.finds());
  loss.count_nameless(recovery.record_count(), static_cast<int64_t>(salvage.finds().size()) + dropped);
  for (const auto &[number, find] : salvage.finds())
    if (!find.fault.empty()) loss.name_damaged(number, url_of(salvage.text_of(find)).value_or(""), find.fault);
  if (salvage.finds().empty() && loss.any()) throw Failure("no description can be read in " + options.database);
  write_stream(salvage, next_number(options.database, salvage, witnesses), options, console);
  summarize(options, console, loss, static_cast<int64_t>(salvage.finds().size()));
  return loss.any() ? exit_found_fault : exit_done;
}

}  // namespace rdm::minidba
