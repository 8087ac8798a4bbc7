// SPDX-License-Identifier: MIT
/*
 * Helpers around the catalog service: times as text, parameter blocks and forms, shell commands, MD5 digests and
 * the URLs that name catalog services.
 *
 * Times are seconds since 1970-01-01 00:00:00 UTC. Text arguments are NUL-terminated and not null unless a function
 * says so. What a function fills belongs to its caller; a text that a function returns newly allocated says so and is
 * released with host_free.
 */
#ifndef LIBCS_CS_H
#define LIBCS_CS_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Times as text ----
 *
 * The formatters store at most `size` bytes with the NUL and return the length of the text. A text that does not fit
 * leaves an empty one and returns 0; with a `size` below 1 nothing is stored. Names of days and months are English,
 * whatever the locale of the program. */

/// cs_time2str writes `t` in UTC as in "Thu, 01 Jan 1970 00:00:00 GMT" (30 bytes for the years 1000 to 9999).
int cs_time2str(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2str_simple_dateonly writes the UTC date of `t` as month/day/year: "01/31/70" (9 bytes).
int cs_time2str_simple_dateonly(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2str_simple_datetimeonly writes `t` in UTC as "01/31/70 23:59:59" (18 bytes).
int cs_time2str_simple_datetimeonly(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2informix writes `t` as databases read it, "1970-01-31 23:59:59" (20 bytes): alone among the four in local
/// time.
int cs_time2informix(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_str2time reads a date as ZAN_ParseTimeString does with the flag 1, stores it through `out` and returns it.
/// What cs_time2str wrote is read back exactly.
time_t cs_str2time(const char *text, time_t *out) QX_NOEXCEPT;

/// ZAN_ParseTimeString finds a date in free text and returns its time, or 0 when day, month or year are missing or the
/// time is before 1970.
///
/// Blanks, tabs and , ; / ( ) [ ] separate the words of the text. So does "-", except that before a digit and
/// after the year it is the sign of a zone offset. Of each kind of word the first counts, and what is none of these is
/// passed over:
///   - month names, by their first three letters in either case;
///   - hour:minute or hour:minute:second, one or two digits each (up to 23:59:60);
///   - four digits: the year;
///   - one or two digits: the day when none was seen and they are 1 to 31; otherwise two digits are a year, 00 to 69
///     in this century and 70 to 99 in the last;
///   - zone names, by their first letters: PST PDT MST MDT CST CDT EST EDT AST NST GMT BST MET EET JST, and UT when no
///     letter follows it (so UTC is none);
///   - "+" or "-" with two or one digits (hours) or four (hours and minutes): an offset east or west of UTC. It counts
///     where no zone or GMT or UT was seen. A later offset replaces one that is west of UTC, and minus one minute is
///     the same as none.
/// A date without a zone is in UTC when `flag` is not 0, otherwise in local standard time. Days past the end of the
/// month run on into the next one.
///
/// A null text is a programming error, which is reported on standard error; the result is 0.
time_t ZAN_ParseTimeString(const char *text, int flag) QX_NOEXCEPT;

/// ZAN_LocalZoneOffset returns by how many minutes local time is ahead of UTC at present: negative west of Greenwich.
int ZAN_LocalZoneOffset(void) QX_NOEXCEPT;

/* ---- Parameter blocks ---- */

/// plus2space replaces each "+" of `text` by a blank and returns the terminating NUL.
char *plus2space(char *text) QX_NOEXCEPT;

/// pblock_form2pblock decodes a query string or HTML form and adds a parameter for each of its fields, with "+" and
/// %xx escapes decoded in names and values. `text` holds `length` characters and one more writable byte; it is
/// overwritten. A field without "=" is named by its count among such fields, from "1" on. The values of fields of one
/// name, and of a parameter that the block already had, are joined with commas into one parameter.
/// Returns the result of the last addition: 0, or -1 when memory failed.
int pblock_form2pblock(char *text, int32_t length, pblock *block) QX_NOEXCEPT;

/// pblock_pblock2str_add_nl puts each name="value" pair of `text` on a line of its own: the character after a value's
/// closing quote becomes a newline. A backslash and the character after it are passed over. Returns `text`.
char *pblock_pblock2str_add_nl(char *text) QX_NOEXCEPT;

/// pblock_pblock2rdm makes an RDM request of the parameters of a GET. The RDM header goes to `header`, followed by
/// three newlines: "rdm-version" 1.0, "rdm-type" from "type", "rdm-query-language" from "ql" and "catalog-service-id"
/// from "csid". An RDMQUERY object with "scope", "view-attributes", "view-hits" and "view-order" goes to `query`.
/// Parameters that are missing or empty leave no attribute; any others are ignored. Both buffers are flushed.
/// Returns null, or why the request is refused, a text that nobody frees; then the buffers are untouched.
const char *pblock_pblock2rdm(pblock *block, csio *header, csio *query) QX_NOEXCEPT;

/// pblock_remove_n_free removes the first parameter of that name and releases it. A null name is ignored.
void pblock_remove_n_free(const char *name, pblock *block) QX_NOEXCEPT;

/* ---- Commands ---- */

/// cs_limited_cli_run runs `command` with /bin/sh in `directory` (null, or one that cannot be entered: the caller's)
/// and waits for it. The command has the caller's standard streams and no other descriptor. With `ignore_signals` not
/// 0 it ignores SIGINT, SIGTERM, SIGUSR1 and SIGUSR2. The reserved words and `pipe_flag` change nothing.
/// Returns its exit status, 0 to 255: 1 too when the shell could not be started, 0 too when a signal ended it or its
/// status was lost; -1 when there was no process for it.
int cs_limited_cli_run(const char *command, const char *directory, long reserved1, long reserved2, int ignore_signals,
                       int pipe_flag) QX_NOEXCEPT;

/// cs_cli_run is cs_limited_cli_run without any of its options.
int cs_cli_run(const char *command, const char *directory) QX_NOEXCEPT;

/// cs_cli_run_no_pipe does the same as cs_cli_run.
int cs_cli_run_no_pipe(const char *command, const char *directory) QX_NOEXCEPT;

/// cs_search_path looks for a file `name` in the directories that the environment variable `variable` lists, separated
/// by colons, and returns the first path at which something exists, or `name` itself when there is none or the variable
/// is unset. The text is newly allocated; null when memory fails.
char *cs_search_path(const char *name, const char *variable) QX_NOEXCEPT;

/* ---- Digests ---- */

/// cs_mem2md5 stores the MD5 digest of `length` bytes in the 16 bytes at `out16` and returns `out16`. With a length
/// below 1 it is the digest of nothing, and `data` may be null.
unsigned char *cs_mem2md5(const void *data, int32_t length, unsigned char *out16) QX_NOEXCEPT;

/// cs_mem2md5str writes the same digest as 32 lower-case hexadecimal digits and a NUL. Returns 2, the characters that
/// the last byte took.
int cs_mem2md5str(const void *data, int32_t length, char *out33) QX_NOEXCEPT;

/* ---- Names of catalog services ---- */

/// csid_parse takes a catalog service's URL apart: "x-catalog://host:port/name", or with "x-catalogs". `name` and
/// `host` hold at least as many bytes as the URL has with its NUL. The host is all up to the first colon, the name all
/// up to the next white space; the port is any number that fits an int.
/// Returns 0, or 1 with both texts empty and the port 0 when a part is missing or `csid` is null.
int csid_parse(const char *csid, char *name, char *host, int *port) QX_NOEXCEPT;

QX_END

#endif
