// SPDX-License-Identifier: MIT
/*
 * The schema translator: maps SOIF attributes to columns of relational tables, and back.
 *
 * schema_translate_init loads the mapping from a schema description (SDL) file before requests are served. After that,
 * any thread may look names up, but only one at a time may build a join clause. Before the first load, lookups find
 * nothing. Returned texts are borrowed from the mapping and valid until the next load, unless a procedure says
 * otherwise. Problems are reported to the diagnostic log.
 *
 * Attributes, "table.column" texts and columns are matched in any letter case; a "-" in the name looked up also matches
 * a "_" in the mapping, but not vice versa. The names of system tables are matched exactly.
 */
#ifndef SERVICE_SCHEMA_H
#define SERVICE_SCHEMA_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// SCHEMA_TEXT_SIZE bytes hold any attribute name and any "table.column" text of the mapping with its NUL; the loader
/// omits longer ones.
#define SCHEMA_TEXT_SIZE 1024

/// Data types; SCHEMA_UNKNOWN is any other type, and the type of an attribute without a mapping.
enum {
  SCHEMA_UNKNOWN = 0,
  SCHEMA_INT = 1,
  SCHEMA_SERIAL = 2,
  SCHEMA_DATE = 3,
  SCHEMA_STRING = 4, /* also if the SDL names no type */
  SCHEMA_FLOAT = 5,
  SCHEMA_BLOB = 6
};

/// schema_translate_init replaces the mapping by the mapping of the SDL file `path`: its first object, or the one after
/// an RDM header. Groups without a system table or column, or with names that are too long, are omitted with a warning;
/// at most 256 are loaded. The table with a column "id" is the root table; the first one loaded stays so for the life
/// of the process. Returns 0; or -1, with an empty mapping, if the file cannot be read (or `path` is null), contains no
/// object, or allocation fails.
int schema_translate_init(const char *path) QX_NOEXCEPT;

/// schema_translate_terminate does nothing, because requests may still use the mapping while the host shuts down. It is
/// registered as a shutdown hook.
void schema_translate_terminate(void) QX_NOEXCEPT;

/// schema_name returns the name of the schema, empty if it has none, cut at 127 bytes.
char *schema_name(void) QX_NOEXCEPT;

/* ---- Single names. `out` must hold SCHEMA_TEXT_SIZE bytes; it is set to an empty text if the name is not found. ----
 */

/// schema_translate_soifattribute copies the "table.column" of an attribute to `out`. Returns `out`, or null if there
/// is no mapping or `attribute` is null.
char *schema_translate_soifattribute(const char *attribute, char *out) QX_NOEXCEPT;

/// schema_translate_soifattr2datatype returns the data type of an attribute, 0 if there is no mapping.
int32_t schema_translate_soifattr2datatype(const char *attribute) QX_NOEXCEPT;

/// schema_translate_tblcol copies the attribute of a "table.column" to `out`. Returns `out`, or null if there is no
/// mapping or `tblcol` is null.
char *schema_translate_tblcol(const char *tblcol, char *out) QX_NOEXCEPT;

/// schema_translate_col is schema_translate_tblcol for a column of any table; it finds the first mapped.
char *schema_translate_col(const char *column, char *out) QX_NOEXCEPT;

/* ---- Lists, separated by commas; empty items are skipped ---- */

/// schema_translate_soif2rdbms translates a list of attributes into a new list of their "table.column" texts, which it
/// stores in `*out` and returns; the caller releases it. Repeated attributes are translated once; those without a
/// mapping are omitted with a warning. A null list gives an empty text. Returns null, and logs an error, if the list or
/// the result has 8192 bytes or more, or null if allocation fails.
char *schema_translate_soif2rdbms(const char *list, char **out) QX_NOEXCEPT;

/// schema_systables stores a new array of the system tables in a list of "table.column" texts (null: all), in the order
/// of the mapping. The caller releases only the array. Items of unknown tables are ignored. Returns their number, or 0,
/// with a null array, if allocation fails.
int32_t schema_systables(const char *tblcols, char ***out) QX_NOEXCEPT;

/// schema_translate_alljoin returns a clause to append to a WHERE condition, which joins the system tables of a list
/// (null: all) to the root table. It is empty if the root table is the only one, null if there are none. The clause is
/// in a static buffer that the next call overwrites. Returns null, and logs an error, if it has 8192 bytes or more. If
/// there are tables but no root table, it aborts.
char *schema_translate_alljoin(const char *tblcols) QX_NOEXCEPT;

/* ---- All attributes that are not internal, in the order of the SDL ---- */

/// schema_soifattrs stores a new array of their names and its length. The caller releases only the array. They are null
/// and 0 if allocation fails.
void schema_soifattrs(char ***out, int32_t *count) QX_NOEXCEPT;

/// schema_tblcols does the same for their "table.column" texts.
void schema_tblcols(char ***out, int32_t *count) QX_NOEXCEPT;

QX_END

#endif
