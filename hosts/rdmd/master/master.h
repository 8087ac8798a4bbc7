// SPDX-License-Identifier: MIT
/// The master: the process that the user starts. It forks the front, which owns all connections, and the workers, which
/// call the plug-in, and starts again what ends.
///
/// It has one thread and never loads the plug-in, so that new workers load the library and the configuration as they
/// are then. It owns the listening sockets, so that no client is refused while a front is started again.
#ifndef HOSTS_RDMD_MASTER_MASTER_H
#define HOSTS_RDMD_MASTER_MASTER_H

#include <vector>

#include "hosts/rdmd/inherited_sockets.h"
#include "hosts/rdmd/master/upgrade.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// run_master serves until SIGTERM or SIGINT and returns the exit status. SIGHUP reloads, SIGUSR1 reopens the logs,
/// SIGUSR2 starts the program again, which takes over.
int run_master(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade);

}  // namespace rdm::rdmd

#endif
