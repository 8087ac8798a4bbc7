// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/user.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace rdm::check {

bool become_user(const std::string &name, Report &report) {
  errno = 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): a check has one thread
  const struct passwd *user = ::getpwnam(name.c_str());
  if (user == nullptr) {
    report.error(0, "unknown user " + quote(name) + (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    return false;
  }
  if (user->pw_uid == ::geteuid()) return true;
  const bool changed =
      ::initgroups(user->pw_name, user->pw_gid) == 0 && ::setgid(user->pw_gid) == 0 && ::setuid(user->pw_uid) == 0;
  if (!changed)
    report.error(0, "cannot take the rights of the user " + quote(name) + ": " + std::strerror(errno) +
                        "; run the check as this user or as the superuser");
  return changed;
}

}  // namespace rdm::check
