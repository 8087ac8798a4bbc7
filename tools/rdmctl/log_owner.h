// SPDX-License-Identifier: MIT
/// Whose the service's logs are.
#ifndef RDMCTL_LOG_OWNER_H
#define RDMCTL_LOG_OWNER_H

#include <iosfwd>
#include <string>

namespace rdm::rdmctl {

/// become_log_owner makes a process of the superuser one of the user to whom the service's logs belong, and says so.
/// The service would otherwise give the server's diagnostic log to "nobody", and the server could not open it again. A
/// diagnostic log that belongs to "nobody" already stays as it is. Throws a Failure when the logs belong to different
/// users, or when their owner may not write them both.
void become_log_owner(const std::string &config, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
