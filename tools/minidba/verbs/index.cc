// SPDX-License-Identifier: MIT
#include <algorithm>
#include <optional>

#include "catalog/maintenance.h"
#include "catalog/os/error.h"
#include "qxapi/counted.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/faults.h"
#include "tools/minidba/output/progress.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {
namespace {

using Entries = std::vector<IndexEntry>;

/// Comparison compares the entries of the next index with the entries of the present one.
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

/// compared_entries returns the entries of all readable records, and compares them with the entries of the present
/// index.
Entries compared_entries(const Catalog &catalog, Comparison &comparison, const Console &console) {
  Progress progress(console, "indexing");
  return index_entries(catalog, [&](const IndexEntry &entry, std::string_view record) {
    comparison.compare(entry, record);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
}

/// check_target throws a Failure if a file would be replaced that is neither empty nor an index: a mistyped name must
/// not cost a file. The file beside the database may be a damaged index.
void check_target(const Options &options) {
  const std::string &index = options.index;
  require_regular(index);
  const auto status = status_of(index);
  if (!status || status->st_size == 0 || index == index_path(options.database)) return;
  std::string head(std::min<size_t>(index_format::header_size, static_cast<size_t>(status->st_size)), '\0');
  File::open(index).read_at(0, head.data(), head.size());
  if (!index_format::has_magic(head))
    throw Failure("index not written: " + index +
                  " exists and is no index: name another file, or remove it if it is a damaged index");
}

/// keep_hidden adds the old entries of damaged records. Without its entry, a record would look new to the next index.
void keep_hidden(Entries &entries, const KnownRecords &known, const Catalog &catalog) {
  if (!catalog.is_partial()) return;
  for (const IndexEntry &entry : known.entries())
    if (catalog.hides(entry.number)) entries.push_back(entry);
}

void check(const Comparison &comparison, const Options &options) {
  if (comparison.count() == 0 || options.accept_damage) return;
  throw Failure("index not written: " + options.index + ": " + counted(comparison.count(), "record is", "records are") +
                " damaged, or the index is of another catalog: restore a backup, or index the records as they are "
                "with --accept-damage");
}

}  // namespace

int index(const Options &options, const Console &console) {
  check_target(options);
  std::optional<Lock> lock = lock_for_writing(options.database, write_settings(options, console));
  Catalog catalog = open_locked(lock ? &*lock : nullptr, options.database);
  const KnownRecords known = known_records(options, catalog, console);
  if (!options.accept_damage) catalog.remember(known);
  skip_damaged(catalog, options, console);
  Comparison comparison(catalog, known, console);
  Entries entries = compared_entries(catalog, comparison, console);
  comparison.close();
  check(comparison, options);
  keep_hidden(entries, known, catalog);
  if (!options.dry_run) write_index(options.index, options.database, entries);
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"indexed", static_cast<int64_t>(entries.size())}, details);
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
