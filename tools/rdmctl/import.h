// SPDX-License-Identifier: MIT
/// The verb import: deliveries of a gatherer become part of a catalog.
#ifndef RDMCTL_IMPORT_H
#define RDMCTL_IMPORT_H

#include <iosfwd>

#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

/// import hands each file to the import entry of the service and prints the text of its answer. Done only when
/// something of every file was accepted and nothing rejected.
int import(const Options &options, std::ostream &out, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
