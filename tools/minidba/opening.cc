// SPDX-License-Identifier: MIT
#include "tools/minidba/opening.h"

#include <ostream>

#include "qxapi/escaped.h"
#include "tools/minidba/output/faults.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {

std::optional<std::string> index_of(const Options &options) {
  if (!options.index.empty()) return options.index;
  const std::string beside = index_path(options.database);
  return status_of(beside) ? std::optional(beside) : std::nullopt;
}

KnownRecords known_records(const Options &options, const Catalog &catalog, const Console &console) {
  // If the named index is yet to be written, use the one beside the database.
  return catalog::known_records(catalog, status_of(options.index) ? options.index : "", [&](const std::string &reason) {
    console.errors << "minidba: " << escaped(reason) << ": records are not compared with it\n";
  });
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

}  // namespace rdm::minidba
