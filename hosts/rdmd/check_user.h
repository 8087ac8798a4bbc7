// SPDX-License-Identifier: MIT
/// The user whose rights a check is about.
#ifndef HOSTS_RDMD_CHECK_USER_H
#define HOSTS_RDMD_CHECK_USER_H

#include <string>

#include "hosts/rdmd/check_lines.h"

namespace rdm::check {

/// become_user gives the process the user, the group and the supplementary groups of the user `name`, for the rest of
/// its life: what it may read and write from now on is what a service of this user may. The caller can name itself;
/// another name takes the rights of the superuser. Returns false, after an error, when the process stays the caller's.
bool become_user(const std::string &name, Report &report);

}  // namespace rdm::check

#endif
