#include <algorithm>
#include <optional>

#include "tools/minidba/failure.h"
#include "tools/minidba/faults.h"
#include "tools/minidba/index_file.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/record.h"
#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/snapshot.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

using Entries = std::vector<IndexEntry>;

/// Comparison holds the entries of the next index against those of the one there is.
class Comparison {
 public:
  Comparison(const Catalog &catalog, const KnownRecords &known, const Console &console)
      : catalog_(catalog), known_(known), faults_(console.errors) {}

  void compare(const IndexEntry &entry, std::string_view record) {
    const std::string fault = known_.fault_of(entry, record);
    if (!fault.empty()) faults_.add(catalog_.damaged(entry.number, record, fault));
  }
  int64_t count() const { return faults_.count(); }
  void close() { faults_.close(); }

 private:
  const Catalog &catalog_;
  const KnownRecords &known_;
  Faults faults_;
};

/// entries_of returns the entries of the records that can be read.
Entries entries_of(const Catalog &catalog, Comparison &comparison, const Console &console) {
  Entries entries;
  Progress progress(console, "indexing");
  catalog.each([&](uint32_t number, std::string_view record) {
    const soif_ptr object = view(catalog, number, record, {"rd-last-changed"});
    entries.push_back(entry_of(number, record, change_time(object.get())));
    comparison.compare(entries.back(), record);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  return entries;
}

/// keep_hidden keeps the entries of damaged records: without its entry, the next index would take the record for a new
/// one.
void keep_hidden(Entries &entries, const KnownRecords &known, const Catalog &catalog) {
  if (!catalog.is_partial()) return;
  for (const IndexEntry &entry : known.entries())
    if (catalog.hides(entry.number)) entries.push_back(entry);
}

void check(const Comparison &comparison, const Options &options) {
  if (comparison.count() == 0 || options.accept_damage) return;
  throw Failure(options.index + " is left as it is: " + std::to_string(comparison.count()) +
                (comparison.count() == 1 ? " record is" : " records are") +
                " damaged, or the index is of another catalog: bring back a backup, or index the records as they are "
                "with --accept-damage");
}

void write(const std::string &path, const std::string &database, const Entries &entries) {
  Snapshot snapshot(path, database);
  snapshot.file().write_at(0, encode(entries));
  snapshot.sync();
  snapshot.commit();
}

}  // namespace

int index(const Options &options, const Console &console) {
  const std::optional<Lock> lock = lock_for(options, console, Absent::error);
  Catalog catalog(options.database);
  const KnownRecords known = known_records(options, catalog, console);
  if (!options.accept_damage) catalog.remember(known);
  skip_damaged(catalog, options, console);
  Comparison comparison(catalog, known, console);
  Entries entries = entries_of(catalog, comparison, console);
  comparison.close();
  check(comparison, options);
  keep_hidden(entries, known, catalog);
  std::sort(entries.begin(), entries.end(), precedes);
  if (!options.dry_run) write(options.index, options.database, entries);
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"indexed", static_cast<int64_t>(entries.size())}, details);
  return status_of_work(catalog);
}

}  // namespace minidba
