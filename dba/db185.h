// SPDX-License-Identifier: MIT
/*
 * The Berkeley DB 1.85 interface: DB, DBT, HASHINFO, the R_ flags and dbopen.
 *
 * The declarations come from db_185.h of a later release, which renames dbopen to a compatibility entry that cannot
 * read hash files of 1.85. The #undef restores the name, declared as libdb1 defines it.
 */
#ifndef DBA_DB185_H
#define DBA_DB185_H

/* db_185.h needs these names of sys/types.h, which does not define them in strict C. */
typedef unsigned char u_char;
typedef unsigned int u_int;

#include <db_185.h>

#undef dbopen

#ifdef __cplusplus
extern "C" {
#endif

/// dbopen opens a database of the given access method. Returns a handle, or null with errno set. Only QX_dbopen calls
/// it.
DB *dbopen(const char *file, int flags, int mode, DBTYPE type, const void *parameters);

#ifdef __cplusplus
}
#endif

#endif
