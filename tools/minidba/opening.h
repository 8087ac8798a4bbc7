// SPDX-License-Identifier: MIT
/// Opening a catalog with the options of a verb.
#ifndef MINIDBA_OPENING_H
#define MINIDBA_OPENING_H

#include <optional>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "tools/minidba/options.h"
#include "tools/minidba/output/report.h"

namespace rdm::minidba {

/// index_of returns the path of the catalog's index: the named one, or an existing one beside the database, otherwise
/// std::nullopt.
std::optional<std::string> index_of(const Options &options);

/// known_records calls catalog::known_records for the named index or, if that does not exist, the one beside the
/// database. It writes to standard error if the index cannot be read.
KnownRecords known_records(const Options &options, const Catalog &catalog, const Console &console);

/// skip_damaged calls Catalog::skip_damaged if the options ask for it, and reports the faults on standard error.
void skip_damaged(Catalog &catalog, const Options &options, const Console &console);

/// open_to_read opens a catalog for a verb that does not change it, and calls skip_damaged. Throws a Failure.
Catalog open_to_read(const Options &options, const Console &console);

/// protect has copied records compared with the index (Catalog::remember), and calls skip_damaged.
void protect(Catalog &catalog, const Options &options, const Console &console);

/// status_of_work returns exit_done, or exit_found_fault if damaged records were left out.
int status_of_work(const Catalog &catalog);

/// add_skipped adds the number of damaged records and pages that were left out, if there are any.
void add_skipped(std::vector<Figure> &details, const Catalog &catalog);

}  // namespace rdm::minidba

#endif
