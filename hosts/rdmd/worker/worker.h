// SPDX-License-Identifier: MIT
/// A worker: a process that loads the plug-in and serves one request at a time.
#ifndef HOSTS_RDMD_WORKER_WORKER_H
#define HOSTS_RDMD_WORKER_WORKER_H

#include "hosts/rdmd/settings.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// run_worker is the whole life of a worker process. It initialises the plug-in, sends its Readiness to `socket`,
/// serves the requests that arrive there until the other end is closed, and calls the plug-in's exits. Returns the exit
/// status of the process.
int run_worker(const Settings &settings, HostFileGuard socket);

}  // namespace rdm::rdmd

#endif
