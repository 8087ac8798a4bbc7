// SPDX-License-Identifier: MIT
/// The front: the process that owns all connections and passes requests to workers.
#ifndef HOSTS_RDMD_FRONT_FRONT_H
#define HOSTS_RDMD_FRONT_FRONT_H

#include <vector>

#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/settings.h"
#include "hosts/rdmd/tls_context.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// run_front is the whole life of a front process. The sockets listen already; `tls` is the context of those that speak
/// TLS, and `control` is the socket to the master.
/// Returns the exit status of the process.
int run_front(const Settings &settings, std::vector<ListeningSocket> sockets, TlsContextPtr tls, HostFileGuard control);

}  // namespace rdm::rdmd

#endif
