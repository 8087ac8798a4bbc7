// SPDX-License-Identifier: MIT
/// The guard for a database handle.
#ifndef DBA_GUARD_H
#define DBA_GUARD_H

#include <qxapi/guard.h>

#include "dba/dba.h"

namespace rdm {

/// DatabasePtr closes the database with its scope.
using DatabasePtr = std::unique_ptr<DB, Deleter<dba_close>>;

}  // namespace rdm

#endif
