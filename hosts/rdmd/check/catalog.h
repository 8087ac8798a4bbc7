// SPDX-License-Identifier: MIT
/// Checks a catalog database and its index.
#ifndef HOSTS_RDMD_CHECK_CATALOG_H
#define HOSTS_RDMD_CHECK_CATALOG_H

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

/// check_catalog checks that the report's file is a catalog database and that the file with ".idx" appended to its name
/// is its index: it reads every record and compares it with its entry. An index that is merely older than its database
/// is a warning; one that contradicts the database is an error.
void check_catalog(Report &report);

}  // namespace rdm::check

#endif
