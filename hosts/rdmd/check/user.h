// SPDX-License-Identifier: MIT
/// Changes the user whose rights a check uses.
#ifndef HOSTS_RDMD_CHECK_USER_H
#define HOSTS_RDMD_CHECK_USER_H

#include <string>

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

/// become_user gives the process the user, group and supplementary groups of the user `name` for the rest of its life.
/// Changing to another user than the caller requires the rights of the superuser. Returns false, after reporting an
/// error, on failure.
bool become_user(const std::string &name, Report &report);

}  // namespace rdm::check

#endif
