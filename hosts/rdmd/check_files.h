/// The files that a catalog service names.
#ifndef HOSTS_RDMD_CHECK_FILES_H
#define HOSTS_RDMD_CHECK_FILES_H

#include "hosts/rdmd/check_lines.h"

namespace check {

/// check_hash_file looks whether the report's file is a catalog database, by its first bytes.
void check_hash_file(Report &report);

/// check_index looks whether the report's file is an index: its magic, the number of entries against its size, and the
/// order of their times.
void check_index(Report &report);

/// check_alias_file looks whether the report's file is of another kind, and for names that would be refused as aliases.
void check_alias_file(Report &report);

}  // namespace check

#endif
