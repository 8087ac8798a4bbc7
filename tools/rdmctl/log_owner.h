// SPDX-License-Identifier: MIT
/// Running as the user who owns the logs of the service.
#ifndef RDMCTL_LOG_OWNER_H
#define RDMCTL_LOG_OWNER_H

#include <iosfwd>
#include <string>

namespace rdm::rdmctl {

/// become_log_owner changes the user of a superuser's process to the owner of the service's logs, and reports it on
/// `errors`. Otherwise the service would change the owner of the server's diagnostic log to "nobody", and the server
/// could not open it again. If only the diagnostic log has another owner and that is "nobody", nothing changes. Throws
/// a Failure if the logs have different owners, or if their owner may not write both.
void become_log_owner(const std::string &config, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
