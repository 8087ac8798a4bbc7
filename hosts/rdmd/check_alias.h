// SPDX-License-Identifier: MIT
/// Alias files.
#ifndef HOSTS_RDMD_CHECK_ALIAS_H
#define HOSTS_RDMD_CHECK_ALIAS_H

#include "hosts/rdmd/check_lines.h"

namespace rdm::check {

/// check_alias_file looks whether the report's file is of another kind, and for names that would be refused as aliases.
void check_alias_file(Report &report);

}  // namespace rdm::check

#endif
