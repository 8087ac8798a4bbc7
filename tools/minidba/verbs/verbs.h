// SPDX-License-Identifier: MIT
/// The verbs. Each reads its own options and returns the exit status of the program. If it throws a Failure, nothing
/// has changed, unless the text says that a file is replaced.
#ifndef MINIDBA_VERBS_VERBS_H
#define MINIDBA_VERBS_VERBS_H

#include "tools/common/program.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

using Verb = int (*)(const Options &, const Console &);

/// Exit statuses; after a Failure it is tools::exit_failure.
using tools::exit_done;
constexpr int exit_found_fault = 1;  // the work was done, but something was rejected, missing or damaged

/// update adds and changes the descriptions of the inputs and prints how many it accepted.
int update(const Options &options, const Console &console);
/// expire deletes the descriptions whose "rd-expires" has passed and prints their number.
int expire(const Options &options, const Console &console);
/// index writes the index and prints the number of its entries.
int index(const Options &options, const Console &console);
/// unclassified prints the URL of each description without classification, in the order of the index.
int unclassified(const Options &options, const Console &console);
/// get prints the descriptions that the arguments name, by number or URL.
int get(const Options &options, const Console &console);
/// list prints descriptions in the order of their numbers.
int list(const Options &options, const Console &console);
/// delete_descriptions deletes descriptions by number or URL and prints their number.
int delete_descriptions(const Options &options, const Console &console);
/// rebuild rewrites database and URL map from the records and prints the number of records. If several descriptions
/// have one URL, it keeps the newest.
int rebuild(const Options &options, const Console &console);
/// export_catalog writes the whole catalog as a SOIF stream with an export header.
int export_catalog(const Options &options, const Console &console);
/// import_catalog creates or replaces a catalog from such a stream.
int import_catalog(const Options &options, const Console &console);
/// stats prints figures about the catalog.
int stats(const Options &options, const Console &console);
/// salvage writes every readable description of a damaged catalog as an export, and reports lost ones.
int salvage(const Options &options, const Console &console);
/// verify checks the catalog and prints the verdict; it reports the faults on standard error.
int verify(const Options &options, const Console &console);

}  // namespace rdm::minidba

#endif
