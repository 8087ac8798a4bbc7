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

/// catalogs lists the configured catalog services. Returns exit_incomplete if a database or its index cannot be read.
int catalogs(const Options &options, std::ostream &out, std::ostream &errors);

/// check checks the configuration with everything that it names, as rdmd --check does, and verifies each catalog as
/// minidba verify does. Returns exit_incomplete if it finds an error. With the option monitor it returns 0 if all is
/// well, 1 after warnings, 2 after errors, 3 if it cannot check; and throws nothing.
int check(const Options &options, std::ostream &out, std::ostream &errors);

/// preview tells how many descriptions and bytes the service would send for a query.
int preview(const Options &options, std::ostream &out, std::ostream &errors);

/// harvesters tells from transaction logs which clients have harvested, and how that went. Returns exit_incomplete if a
/// line is not one of a transaction log.
int harvesters(const Options &options, std::ostream &out, std::ostream &errors);

/// translate translates attributes to columns, tables and a join clause, by a schema description. Returns
/// exit_incomplete if an attribute has no column.
int translate(const Options &options, std::ostream &out, std::ostream &errors);

/// taxonomy shows a taxonomy description, finds classes in it, or checks it and the classifications of the catalog.
/// Returns exit_incomplete if nothing was found, or if something is wrong.
int taxonomy(const Options &options, std::ostream &out, std::ostream &errors);

/// describe makes a prepared answer of plain text (plain_description.h), and checks it.
int describe(const Options &options, std::ostream &out, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
