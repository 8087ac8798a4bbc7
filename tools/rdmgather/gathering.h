// SPDX-License-Identifier: MIT
/// The work of rdmgather.
#ifndef RDMGATHER_GATHERING_H
#define RDMGATHER_GATHERING_H

#include "tools/rdmgather/options.h"

namespace rdm::gather {

constexpr int exit_incomplete = 1;  // done, but some documents could not be read

/// gather describes the documents that are new or have changed, and names those that have vanished. One that cannot be
/// read, or is below a directory that cannot be read, has not vanished. If all have vanished, that must be believed.
/// The state changes last, when all output is written. Returns the exit status. Throws a Failure if it cannot.
int gather(const Options &options, const Console &console);

}  // namespace rdm::gather

#endif
