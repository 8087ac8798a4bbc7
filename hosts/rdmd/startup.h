// SPDX-License-Identifier: MIT
/// What a server says when it starts.
#ifndef HOSTS_RDMD_STARTUP_H
#define HOSTS_RDMD_STARTUP_H

#include <string>
#include <vector>

#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/log.h"

namespace rdm::rdmd {

/// addresses_of returns the addresses of the service, such as "127.0.0.1:8380, 127.0.0.1:8443 (TLS)", or those of the
/// administration endpoint.
std::string addresses_of(const std::vector<ListeningSocket> &sockets, bool admin);

/// announce writes the addresses of the service and, if it is not empty, of the administration endpoint to standard
/// error, even if the error log is a file: people and scripts read them there.
void announce(const std::string &addresses, const std::string &admin, ErrorLog &errors);

/// log_mistakes logs mistakes in the configuration with their lines. They do not keep the server from starting; only
/// the plug-in decides that.
void log_mistakes(const std::string &config, ErrorLog &errors);

}  // namespace rdm::rdmd

#endif
