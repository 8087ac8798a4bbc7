// SPDX-License-Identifier: MIT
/*
 * The Berkeley DB 1.85 interface: DB, DBT, HASHINFO, the R_ flags and dbopen.
 *
 * The declarations come from db_185.h, whose own library renames dbopen to a compatibility entry of a later release.
 * That release cannot read hash files of 1.85, so the name is given back and declared as libdb1 defines it.
 */
#ifndef DBA_DB185_H
#define DBA_DB185_H

/* The names that db_185.h takes from sys/types.h, which leaves them out of strict C. */
typedef unsigned char u_char;
typedef unsigned int u_int;

#include <db_185.h>

#undef dbopen

#ifdef __cplusplus
extern "C" {
#endif

/// dbopen opens a database of the given access method; null with errno set when it cannot. Only QX_dbopen calls it.
DB *dbopen(const char *file, int flags, int mode, DBTYPE type, const void *parameters);

#ifdef __cplusplus
}
#endif

#endif
