// SPDX-License-Identifier: MIT
/*
 * Access to catalog databases: hash files in the format of Berkeley DB 1.85.
 *
 * A catalog is read through a handle that lives for one request: open, some reads, close. A handle is used by one
 * thread at a time. Reads return 0 when a record was found, 1 when there is none and -1 on failure with errno set;
 * writes return 0 or -1. The bytes of a key or value that a read returns belong to the handle and stay as they are
 * until its next operation.
 *
 * Files open for reading only are read by checked code of our own: whatever bytes a file holds, a read ends with a
 * record, with 1 or with -1 (errno EINVAL where the file contradicts itself), takes memory for a page and the record it
 * returns, never for more than a few times the file, and the close gives everything back. A damaged page costs the
 * records that are reached through it, no others.
 * Files open for writing, and databases without a file, are handled by the hash library. It trusts the pages of its
 * file and cannot hold every set of records; catalogs are therefore written by minidba, which does not use it.
 */
#ifndef DBA_DBA_H
#define DBA_DBA_H

#include <qxapi/qxapi.h>

#include "db185.h"

QX_BEGIN

/// While all_databases_locked_closed is not 0, QX_dbopen refuses every file. It starts as 0 and is read without a lock.
extern int all_databases_locked_closed;

/// dba_open opens the file `path`: "w+" empties or creates it for reading and writing (mode 0644), "w" opens or creates
/// it for reading and writing, "r" and any other mode opens it for reading only. Returns a handle for dba_close, or
/// null with errno set as QX_dbopen does.
DB *dba_open(const char *path, const char *mode) QX_NOEXCEPT;

/// dba_close releases the handle, after writing what is unwritten. Returns 0, or -1 when that failed.
int dba_close(DB *db) QX_NOEXCEPT;

/// dba_get reads the record of `key` into `value`. Returns 0, 1 when there is no such record, or -1.
int dba_get(DB *db, const DBT *key, DBT *value) QX_NOEXCEPT;

/// dba_put stores a record, in place of one with the same key. Returns 0 or -1; errno is EPERM on a read-only handle.
int dba_put(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;

/// dba_replace is dba_put under another name: both overwrite.
int dba_replace(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;

/// dba_del removes the record of `key`. Returns 0, 1 when there is no such record, or -1.
int dba_del(DB *db, const DBT *key) QX_NOEXCEPT;

/// dba_first reads some record and dba_next another that was not yet read since, in an order of the file's own.
/// They return 0, 1 after the last record, or -1. Reads by key in between do not disturb the walk. On a read-only
/// handle a walk can go on after -1: it has skipped the rest of a damaged bucket.
int dba_first(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;
int dba_next(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;

/// QX_dbopen opens a hash database. `file` null means a database in memory. `flags` are O_RDONLY or O_RDWR with any of
/// O_CREAT, O_TRUNC, O_EXCL and the three highest bits, which go to the access method; `mode` is the permissions of a
/// file it creates, `type` DB_HASH and `parameters` null or a HASHINFO. Returns a handle, whose descriptor is
/// close-on-exec, or null with errno set: EINVAL while databases are locked and a file is named, for other flags or
/// types, and for an existing file (unless O_TRUNC) that is empty, not a regular file, or has a header that contradicts
/// itself or the file's size.
DB *QX_dbopen(const char *file, int flags, int mode, int type, const void *parameters) QX_NOEXCEPT;

/// dbSetOrClearDBLock allows opening when `allow` is not 0 and makes QX_dbopen refuse files when it is 0, for the time
/// in which a host has its databases rebuilt. Open handles are not affected.
void dbSetOrClearDBLock(int allow) QX_NOEXCEPT;

/// __dbpanic leaves a handle whose file turned out inconsistent good for nothing but dba_close: every other operation
/// returns -1 from then on.
void __dbpanic(DB *db) QX_NOEXCEPT;

QX_END

#endif
