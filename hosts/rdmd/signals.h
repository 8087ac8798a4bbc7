// SPDX-License-Identifier: MIT
/// The signals of operators before the server can obey them.
#ifndef HOSTS_RDMD_SIGNALS_H
#define HOSTS_RDMD_SIGNALS_H

namespace rdm::rdmd {

/// hold_signals blocks SIGHUP, SIGUSR1 and SIGUSR2, which would end the process, and no other signal. They wait until
/// the server obeys them. execve() keeps this, so that a new program holds them from its first instruction on.
void hold_signals();

/// unblock_signals blocks none.
void unblock_signals();

}  // namespace rdm::rdmd

#endif
