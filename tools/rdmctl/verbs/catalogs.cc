// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/catalog.h"
#include "catalog/hash/statistics.h"
#include "dba/index_format.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/import_report.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

/// indexed_in returns the number of entries that an index counts.
uint32_t indexed_in(const std::string &path) {
  const catalog::File file = catalog::File::open(path);
  std::string header(index_format::header_size, '\0');
  file.read_at(0, header.data(), header.size());
  if (!index_format::has_magic(header)) throw Failure("not an index: " + path);
  return index_format::entry_count(header);
}

/// last_import returns the time of the newest report of an import that did not fail, or an empty text.
std::string last_import(const std::string &database) {
  std::string last;
  for (const Json &report : read_reports(database, [](const std::string &) {}))
    if (report.contains("when") && report["when"].is_string() && !report.contains("failure")) last = report["when"];
  return last;
}

/// describe adds what is known of a catalog. Throws a Failure if a file cannot be read.
void describe(const std::string &database, Json &row) {
  const catalog::Catalog opened(database);
  const auto statistics = catalog::statistics_of(database);
  row["descriptions"] = statistics.records;
  row["bytes"] = statistics.file_bytes;
  const auto newest = opened.newest_given();
  row["changed"] = newest && *newest != 0 ? Json(catalog::date_of(*newest)) : Json();
  const std::string last = last_import(database);
  row["published"] = last.empty() ? Json() : Json(last);
  row["indexed"] = indexed_in(catalog::index_path(database));
}

Json row_of(const check::ConfiguredCatalog &service) {
  Json row{{"csid", service.csid}, {"database", service.database}};
  try {
    if (service.database.empty()) throw Failure("no catalog-database is configured");
    describe(service.database, row);
  } catch (const Failure &failure) {
    row["failure"] = failure.what();
  }
  return row;
}

void show_catalog(const Json &row, std::ostream &out) {
  const auto text = [&](const char *name) { return escaped(row[name].get<std::string>()); };
  out << text("csid") << ": ";
  if (row.contains("failure")) {
    out << text("failure") << '\n';
    return;
  }
  const auto number = [&](const char *name) { return row[name].get<int64_t>(); };
  out << counted(number("descriptions"), "description") << ", " << row["indexed"] << " indexed, "
      << counted(number("bytes"), "byte");
  for (const char *name : {"changed", "published"})
    if (!row[name].is_null()) out << ", " << name << ' ' << text(name);
  out << ": " << text("database") << '\n';
}

}  // namespace

int catalogs(const Options &options, std::ostream &out, std::ostream &) {
  Json rows = Json::array();
  bool is_whole = true;
  for (const check::ConfiguredCatalog &service : readable_catalogs(options.config)) {
    rows.push_back(row_of(service));
    is_whole = is_whole && !rows.back().contains("failure");
  }
  if (options.json)
    out << text_of(rows) << '\n';
  else
    for (const Json &row : rows) show_catalog(row, out);
  return is_whole ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
