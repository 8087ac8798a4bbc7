// SPDX-License-Identifier: MIT
/// A catalog: its database and the index beside it.
#ifndef HOSTS_RDMD_CHECK_CATALOG_H
#define HOSTS_RDMD_CHECK_CATALOG_H

#include "hosts/rdmd/check_lines.h"

namespace rdm::check {

/// check_catalog checks that the report's file is a catalog database and that the file beside it, with ".idx" appended
/// to its name, is the index of this database: every record is read and compared with its entry. An index that is only
/// older than its database, so that it lacks records, is a warning; one that contradicts the database is an error.
void check_catalog(Report &report);

}  // namespace rdm::check

#endif
