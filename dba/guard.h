/// The guard over a database handle.
#ifndef DBA_GUARD_H
#define DBA_GUARD_H

#include <qxapi/guard.h>

#include "dba/dba.h"

/// database_ptr closes the database with its scope.
using database_ptr = std::unique_ptr<DB, deleter<dba_close>>;

#endif
