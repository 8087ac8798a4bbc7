// SPDX-License-Identifier: MIT
/// The verbs of rdmctl, a file for each; import is in a file of its own.
///
/// A verb writes its result to `out` and messages for people to `errors`. It returns the exit status, and throws a
/// Failure if it has changed nothing.
#ifndef RDMCTL_VERBS_VERBS_H
#define RDMCTL_VERBS_VERBS_H

#include <iosfwd>

#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

/// publish makes files the next state of a catalog: database and index together. It keeps a report beside the catalog.
/// With a spool directory, it publishes each file in it by itself, and moves it to "done" or "rejected" there. Returns
/// exit_incomplete if objects or files were rejected, or if the report could not be kept.
int publish(const Options &options, std::ostream &out, std::ostream &errors);

/// imports shows the reports of a catalog, the oldest first.
int imports(const Options &options, std::ostream &out, std::ostream &errors);

/// diff compares the descriptions of two catalogs by URL. Returns exit_incomplete if they differ.
int diff(const Options &options, std::ostream &out, std::ostream &errors);

/// backup writes a catalog to one file, restore makes such a file the state of a catalog, with a new index.
int backup(const Options &options, std::ostream &out, std::ostream &errors);
int restore(const Options &options, std::ostream &out, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
