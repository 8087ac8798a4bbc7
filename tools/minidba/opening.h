// SPDX-License-Identifier: MIT
/// Opening a catalog as the options of a verb want it.
#ifndef MINIDBA_OPENING_H
#define MINIDBA_OPENING_H

#include <optional>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "tools/minidba/options.h"
#include "tools/minidba/output/report.h"

namespace rdm::minidba {

/// index_of returns the path of the catalog's index: the one that is named, else the one beside the database if there
/// is one.
std::optional<std::string> index_of(const Options &options);

/// known_records returns what the index remembers of the records of a catalog. Nothing is known without an index, from
/// one of an earlier catalog of this name, and from one that cannot be read, which standard error then says.
KnownRecords known_records(const Options &options, const Catalog &catalog, const Console &console);

/// skip_damaged has a catalog leave out what is damaged if the options say so, and names it on standard error.
void skip_damaged(Catalog &catalog, const Options &options, const Console &console);

/// open_to_read opens a catalog for a verb that shows it.
Catalog open_to_read(const Options &options, const Console &console);

/// protect has what is copied held against the index, then does as skip_damaged.
void protect(Catalog &catalog, const Options &options, const Console &console);

/// status_of_work returns exit_done, or exit_found_fault where something damaged was left out.
int status_of_work(const Catalog &catalog);

/// add_skipped adds how many damaged records and pages were left out, if any.
void add_skipped(std::vector<Figure> &details, const Catalog &catalog);

}  // namespace rdm::minidba

#endif
