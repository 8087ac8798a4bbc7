// SPDX-License-Identifier: MIT
/// The reports of imports that are kept beside a catalog, in the file DATABASE.imports: a JSON object on each line.
#ifndef RDMCTL_IMPORT_REPORT_H
#define RDMCTL_IMPORT_REPORT_H

#include <functional>
#include <string>
#include <vector>

#include "tools/rdmctl/output.h"
#include "tools/rdmctl/publishing.h"

namespace rdm::rdmctl {

/// imports_path returns the path of the reports beside a database.
std::string imports_path(const std::string &database);

/// report_of returns the report of a publication: "when" (UTC), "who" (the calling user), "source", "full-feed",
/// "inputs", the counts, "rejects", if there are any "warned" and "warnings", and, if it failed, "failure". Only the
/// first thousand rejected objects and warnings are in it.
Json report_of(const Publication &publication, const std::string &source, bool is_full, const std::string &failure);

/// append_report adds a report. If the file is new, its owner, group and mode are those of the database, if it exists.
/// Throws a SystemFailure.
void append_report(const std::string &database, const Json &report);

/// read_reports returns all reports of a catalog, the oldest first; none if there is no file. `damage` receives a
/// message for each line that is not a report, as a crash of the machine may leave. Throws a SystemFailure if the file
/// cannot be read.
std::vector<Json> read_reports(const std::string &database, const std::function<void(const std::string &)> &damage);

}  // namespace rdm::rdmctl

#endif
