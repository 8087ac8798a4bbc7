// SPDX-License-Identifier: MIT
/*
 * Access to catalog databases: hash files in the format of Berkeley DB 1.85.
 *
 * A handle for reading may stay open as long as its file does not change. Only one thread at a time may use a handle.
 * Reads return 0 for a record, 1 if there is no such record, and -1 with errno set on failure; writes return 0 or -1.
 * The bytes of a key or value that a read returns belong to the handle and are valid until its next operation.
 *
 * Files opened for reading only are read by our own code, which checks every offset. Whatever the file holds, a read
 * returns 0, 1 or -1 (errno EINVAL for an inconsistent file). It allocates a page and the record that it returns, at
 * most a few times the size of the file; dba_close releases both. A damaged page loses only the records that are
 * reached through it. Files opened for writing, and databases in memory, are handled by the hash library. It trusts its
 * pages and cannot store every set of records; that is why minidba, which writes catalogs, does not use it.
 */
#ifndef DBA_DBA_H
#define DBA_DBA_H

#include <qxapi/qxapi.h>

#include "db185.h"

QX_BEGIN

/// While all_databases_locked_closed is not 0, QX_dbopen refuses to open files. It is initially 0 and read without a
/// lock.
extern int all_databases_locked_closed;

/// dba_open opens the file `path`: "w+" creates or truncates it for reading and writing (mode 0644), "w" opens or
/// creates it for reading and writing, "r" and any other mode opens it for reading only. Returns a handle for
/// dba_close, or null with the errno of QX_dbopen.
DB *dba_open(const char *path, const char *mode) QX_NOEXCEPT;

/// dba_close writes unwritten data and releases the handle. Returns 0, or -1 if writing failed.
int dba_close(DB *db) QX_NOEXCEPT;

/// dba_get reads the record of `key` into `value`. Returns 0, 1 when there is no such record, or -1.
int dba_get(DB *db, const DBT *key, DBT *value) QX_NOEXCEPT;

/// dba_put stores a record, in place of one with the same key. Returns 0 or -1; errno is EPERM on a read-only handle.
int dba_put(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;

/// dba_replace is dba_put under another name: both overwrite.
int dba_replace(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;

/// dba_del removes the record of `key`. Returns 0, 1 when there is no such record, or -1.
int dba_del(DB *db, const DBT *key) QX_NOEXCEPT;

/// dba_first reads the first record and dba_next the next one, each record once, in the order of the file. They return
/// 0, 1 after the last record, or -1. Reads by key do not move this position. On a read-only handle, dba_next may be
/// called after -1: it skips the rest of the damaged bucket.
int dba_first(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;
int dba_next(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;

/// QX_dbopen opens a hash database; if `file` is null, one in memory. `flags` are O_RDONLY or O_RDWR with any of
/// O_CREAT, O_TRUNC, O_EXCL and the three highest bits, which are passed to the library; `mode` are the permissions of
/// a file that it creates; `type` is DB_HASH; `parameters` is null or a HASHINFO. Returns a handle, whose descriptor is
/// close-on-exec, or null with errno set. errno is EINVAL while databases are locked and `file` is not null, for other
/// flags or types, and, without O_TRUNC, for an existing file that is empty, not a regular file, or has a header
/// inconsistent with itself or the file's size.
DB *QX_dbopen(const char *file, int flags, int mode, int type, const void *parameters) QX_NOEXCEPT;

/// dbSetOrClearDBLock makes QX_dbopen refuse files if `allow` is 0, while a host has its databases rebuilt, and allows
/// them again otherwise. Open handles are not affected.
void dbSetOrClearDBLock(int allow) QX_NOEXCEPT;

/// __dbpanic disables a handle whose file is inconsistent: every operation but dba_close returns -1 from then on.
void __dbpanic(DB *db) QX_NOEXCEPT;

QX_END

#endif
