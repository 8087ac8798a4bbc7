// SPDX-License-Identifier: MIT
/// Checks alias files.
#ifndef HOSTS_RDMD_CHECK_ALIAS_H
#define HOSTS_RDMD_CHECK_ALIAS_H

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

/// check_alias_file reports a file that is not an alias file, and aliases that the service would refuse.
void check_alias_file(Report &report);

}  // namespace rdm::check

#endif
