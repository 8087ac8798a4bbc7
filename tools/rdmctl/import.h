// SPDX-License-Identifier: MIT
/// The verb import: importing submissions of a gatherer into a catalog.
#ifndef RDMCTL_IMPORT_H
#define RDMCTL_IMPORT_H

#include <iosfwd>

#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

/// import passes each file to the import entry of the service and prints the text of the answer. It works in a child
/// process (supervise). Returns exit_done if every file had descriptions, all were accepted and the commands after the
/// update succeeded; exit_failure if every file failed without a change to the catalog; otherwise exit_incomplete.
/// Throws a Failure before the first import if the catalog or a file cannot be used; later failures are messages on
/// `errors`.
int import(const Options &options, std::ostream &out, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
