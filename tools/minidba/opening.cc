#include "tools/minidba/opening.h"

#include <ostream>

#include "tools/common/escaped.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/faults.h"
#include "tools/minidba/verbs.h"

namespace minidba {
namespace {

KnownRecords read_known(const std::string &path, const Catalog &catalog) {
  const auto status = status_of(path);
  if (!status || catalog.predates(*status)) return KnownRecords();
  return KnownRecords(read_index(path), catalog.newest_given());
}

}  // namespace

std::optional<std::string> index_of(const Options &options) {
  if (!options.index.empty()) return options.index;
  const std::string beside = options.database + ".idx";
  return status_of(beside) ? std::optional(beside) : std::nullopt;
}

namespace {

/// index_to_compare returns the index that may know of damage. One that is about to be written under a new name knows
/// nothing, but that beside the database may.
std::optional<std::string> index_to_compare(const Options &options) {
  if (options.index.empty() || status_of(options.index)) return index_of(options);
  Options unnamed = options;
  unnamed.index.clear();
  return index_of(unnamed);
}

}  // namespace

KnownRecords known_records(const Options &options, const Catalog &catalog, const Console &console) {
  if (!catalog.exists()) return KnownRecords();
  try {
    const std::optional<std::string> path = index_to_compare(options);
    return path ? read_known(*path, catalog) : KnownRecords();
  } catch (const Failure &failure) {
    console.errors << "minidba: " << tools::escaped(failure.what()) << ": no record is compared with it\n";
    return KnownRecords();
  }
}

void skip_damaged(Catalog &catalog, const Options &options, const Console &console) {
  if (!options.skip_damaged) return;
  Faults faults(console.errors);
  catalog.skip_damaged([&](const std::string &fault) { faults.add("left out: " + fault); });
  faults.close();
}

Catalog open_to_read(const Options &options, const Console &console) {
  Catalog catalog(options.database);
  skip_damaged(catalog, options, console);
  return catalog;
}

void protect(Catalog &catalog, const Options &options, const Console &console) {
  catalog.remember(known_records(options, catalog, console));
  skip_damaged(catalog, options, console);
}

int status_of_work(const Catalog &catalog) { return catalog.is_partial() ? exit_found_fault : exit_done; }

void add_skipped(std::vector<Figure> &details, const Catalog &catalog) {
  if (catalog.is_partial()) details.push_back({"damaged", catalog.left_out()});
}

}  // namespace minidba
