/*
 * Access to catalog databases.
 */
#ifndef DBA_DBA_H
#define DBA_DBA_H

#include <qxapi/qxapi.h>

#include "db185.h"

QX_BEGIN

/* DB, DBT, HASHINFO: the declarations of the Berkeley DB 1.85 interface, through one wrapper header dba/db185.h */
extern int all_databases_locked_closed;
DB *dba_open(const char *path, const char *mode) QX_NOEXCEPT;
int dba_close(DB *db) QX_NOEXCEPT;
int dba_get(DB *db, const DBT *key, DBT *value) QX_NOEXCEPT;
int dba_put(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;
int dba_replace(DB *db, DBT *key, const DBT *value) QX_NOEXCEPT;
int dba_del(DB *db, const DBT *key) QX_NOEXCEPT;
int dba_first(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;
int dba_next(DB *db, DBT *key, DBT *value) QX_NOEXCEPT;
DB *QX_dbopen(const char *file, int flags, int mode, int type, const void *parameters) QX_NOEXCEPT;
void dbSetOrClearDBLock(int allow) QX_NOEXCEPT;
void __dbpanic(DB *db) QX_NOEXCEPT;

QX_END

#endif
