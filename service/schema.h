// SPDX-License-Identifier: MIT
/*
 * The schema translator: SOIF attributes and the columns of the relational tables that hold them.
 *
 * schema_translate_init loads the mapping from a schema description (SDL) file before requests are served; after that
 * any thread may ask, except for join clauses. Before the first load nothing is found. What is looked up is borrowed
 * from the mapping, and good until the next load, unless a procedure says otherwise. Problems go to the diagnostic log.
 *
 * Attributes, "table.column" texts and columns are matched in any letter case; besides, a "-" in what is looked up
 * matches a "_" in the mapping, though not the other way round. The names of system tables are matched exactly.
 */
#ifndef SERVICE_SCHEMA_H
#define SERVICE_SCHEMA_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// SCHEMA_TEXT_SIZE bytes hold any attribute name and any "table.column" text of the mapping with its NUL: the loader
/// leaves out what is longer.
#define SCHEMA_TEXT_SIZE 1024

/// Data types; SCHEMA_UNKNOWN stands for a type of another name and for an attribute without a mapping.
enum {
  SCHEMA_UNKNOWN = 0,
  SCHEMA_INT = 1,
  SCHEMA_SERIAL = 2,
  SCHEMA_DATE = 3,
  SCHEMA_STRING = 4, /* also where the SDL names no type */
  SCHEMA_FLOAT = 5,
  SCHEMA_BLOB = 6
};

/// schema_translate_init replaces the mapping by that of the SDL file `path`: the first object, or the one after an
/// RDM header. Groups without a system table or column, and with names too long, are left out with a warning; at most
/// 256 are loaded. The table whose column is named "id" is the root table, the first ever loaded for the life of the
/// process. 0; -1, and the mapping is empty, when there is no such file (null included), no object in it or no memory.
int schema_translate_init(const char *path) QX_NOEXCEPT;

/// schema_translate_terminate does nothing: requests may still ask while the host shuts down. It takes the place of a
/// shutdown hook.
void schema_translate_terminate(void) QX_NOEXCEPT;

/// schema_name returns the name of the schema, empty when it has none. A name of 128 bytes or more is cut.
char *schema_name(void) QX_NOEXCEPT;

/* ---- Single names. `out` must hold SCHEMA_TEXT_SIZE bytes; it is emptied when nothing is found. ---- */

/// schema_translate_soifattribute copies the "table.column" of an attribute into `out` and returns `out`; null when
/// there is no mapping or `attribute` is null.
char *schema_translate_soifattribute(const char *attribute, char *out) QX_NOEXCEPT;

/// schema_translate_soifattr2datatype returns the data type of an attribute, 0 when there is no mapping.
int32_t schema_translate_soifattr2datatype(const char *attribute) QX_NOEXCEPT;

/// schema_translate_tblcol copies the attribute of a "table.column" into `out` and returns `out`; null when there is
/// no mapping or `tblcol` is null.
char *schema_translate_tblcol(const char *tblcol, char *out) QX_NOEXCEPT;

/// schema_translate_col is schema_translate_tblcol for a column of any table: of several the first mapped.
char *schema_translate_col(const char *column, char *out) QX_NOEXCEPT;

/* ---- Lists, separated by commas; empty items are skipped ---- */

/// schema_translate_soif2rdbms translates a list of attributes into a new list of their "table.column" texts, which it
/// stores and returns; the caller releases it. Each attribute counts once; those without a mapping are left out with a
/// warning. A null list gives an empty text. Null, with an error, when the list or the result has 8192 bytes or more;
/// null when memory fails.
char *schema_translate_soif2rdbms(const char *list, char **out) QX_NOEXCEPT;

/// schema_systables stores a new array of the system tables that a list of "table.column" texts touches (null: all), in
/// the order in which the mapping names them, and returns their number. The caller releases the array alone. Items of
/// unknown tables are ignored. 0, with a null array, when memory fails.
int32_t schema_systables(const char *tblcols, char ***out) QX_NOEXCEPT;

/// schema_translate_alljoin returns the clause, to be appended to a WHERE condition, that ties the system tables of a
/// list (null: all) to the root table; empty when the root table is the only one, null when there is none. It stands in
/// one buffer for the process that the next call overwrites. Null, with an error, when it has 8192 bytes or more.
/// Tables without a root table are fatal.
char *schema_translate_alljoin(const char *tblcols) QX_NOEXCEPT;

/* ---- All attributes that are not internal, in the order of the SDL ---- */

/// schema_soifattrs stores a new array of their names and its length. The caller releases the array alone. Null and 0
/// when memory fails.
void schema_soifattrs(char ***out, int32_t *count) QX_NOEXCEPT;

/// schema_tblcols does the same for their "table.column" texts.
void schema_tblcols(char ***out, int32_t *count) QX_NOEXCEPT;

QX_END

#endif
