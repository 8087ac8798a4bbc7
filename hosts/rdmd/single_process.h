// SPDX-License-Identifier: MIT
/// The server without a master: one process that owns all connections and calls the plug-in (--workers 0).
#ifndef HOSTS_RDMD_SINGLE_PROCESS_H
#define HOSTS_RDMD_SINGLE_PROCESS_H

#include <vector>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/inherited_sockets.h"
#include "hosts/rdmd/master/upgrade.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// load_plugin loads the plug-in that the settings name. Throws a PluginError.
hosts::Plugin load_plugin(const Settings &settings);

/// run_single_process opens the logs, runs the server until it is stopped and returns the exit status. It takes over
/// the inherited sockets. While its logs are not open, the signals that reopen logs are ignored.
int run_single_process(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade);

}  // namespace rdm::rdmd

#endif
