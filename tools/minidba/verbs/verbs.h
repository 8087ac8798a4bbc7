// SPDX-License-Identifier: MIT
/// The verbs. Each does its work and returns the program's exit status; a Failure that it throws means that nothing
/// changed, unless it says what is replaced.
#ifndef MINIDBA_VERBS_VERBS_H
#define MINIDBA_VERBS_VERBS_H

#include "tools/common/program.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

using Verb = int (*)(const Options &, const Console &);

/// What the exit status says, besides tools::exit_failure after a Failure.
using tools::exit_done;
constexpr int exit_found_fault = 1;  // the work was done, but something was rejected, missing or damaged

/// update takes in the descriptions on the inputs and prints how many it accepted.
int update(const Options &options, const Console &console);
/// expire drops the descriptions whose "rd-expires" has passed and prints their number.
int expire(const Options &options, const Console &console);
/// index writes the index and prints the number of its entries.
int index(const Options &options, const Console &console);
/// unclassified prints the URL of each description without classification, in the order of the index.
int unclassified(const Options &options, const Console &console);
/// get prints the descriptions that the arguments name, by number or URL.
int get(const Options &options, const Console &console);
/// list prints descriptions in the order of their numbers.
int list(const Options &options, const Console &console);
/// delete_descriptions removes descriptions by number or URL and prints their number.
int delete_descriptions(const Options &options, const Console &console);
/// rebuild writes database and URL map anew from the records and prints their number.
int rebuild(const Options &options, const Console &console);
/// export_catalog writes the whole catalog as one stream.
int export_catalog(const Options &options, const Console &console);
/// import_catalog makes such a stream the whole catalog.
int import_catalog(const Options &options, const Console &console);
/// stats prints figures about the catalog.
int stats(const Options &options, const Console &console);
/// salvage writes every description that can be read of a damaged catalog as one stream, and names what is lost.
int salvage(const Options &options, const Console &console);
/// verify prints whether the catalog is sound; what is wrong with it goes to the errors.
int verify(const Options &options, const Console &console);

}  // namespace rdm::minidba

#endif
