// SPDX-License-Identifier: MIT
/*
 * Helpers of the catalog service: times as text, parameter blocks and forms, shell commands, MD5 digests and the URLs
 * of catalog services.
 *
 * Times are seconds since 1970-01-01 00:00:00 UTC. Text arguments are NUL-terminated and not null unless a function
 * says otherwise. Buffers belong to the caller; so does a returned text that is newly allocated, to be released with
 * host_free.
 */
#ifndef LIBCS_CS_H
#define LIBCS_CS_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Times as text ----
 *
 * The formatters store at most `size` bytes, NUL included, and return the length of the text. If it does not fit, they
 * store an empty text and return 0; if `size` is below 1, they store nothing. The names of days and months are English
 * in every locale. */

/// cs_time2str writes `t` in UTC as in "Thu, 01 Jan 1970 00:00:00 GMT" (30 bytes for the years 1000 to 9999).
int cs_time2str(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2str_simple_dateonly writes the UTC date of `t` as month/day/year: "01/31/70" (9 bytes).
int cs_time2str_simple_dateonly(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2str_simple_datetimeonly writes `t` in UTC as "01/31/70 23:59:59" (18 bytes).
int cs_time2str_simple_datetimeonly(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_time2informix writes `t` as databases read it, "1970-01-31 23:59:59" (20 bytes), in local time, unlike the other
/// three.
int cs_time2informix(time_t t, char *buffer, int size) QX_NOEXCEPT;

/// cs_str2time parses a date like ZAN_ParseTimeString with `flag` 1, stores the time in `*out` and returns it. It reads
/// the output of cs_time2str back exactly for the years 1970 to 9999.
time_t cs_str2time(const char *text, time_t *out) QX_NOEXCEPT;

/// ZAN_ParseTimeString finds a date in free text. Returns its time, or 0 if the day, month or year is missing or the
/// time is before 1970.
///
/// Blanks, tabs and , ; / ( ) [ ] separate the words of the text. So does "-", unless it precedes a digit and follows
/// the year: then it is the sign of a zone offset. The first word of each kind counts; other words are ignored. The
/// kinds are:
///   - month names, by their first three letters in either case;
///   - hour:minute or hour:minute:second, one or two digits each (up to 23:59:60);
///   - four digits: the year;
///   - one or two digits: the day, if it is the first from 1 to 31; otherwise two digits are a year, 2000 to 2069 or
///     1970 to 1999;
///   - zone names, by their first letters: PST PDT MST MDT CST CDT EST EDT AST NST GMT BST MET EET JST, and UT when no
///     letter follows it (so UTC is not a zone name);
///   - "+" or "-" with one or two digits (hours) or four (hours and minutes): an offset east or west of UTC. It counts
///     unless another zone than GMT or UT was seen. A later offset replaces one that is west of UTC, and an offset of
///     minus one minute is ignored.
/// A date without a zone is in UTC if `flag` is not 0, otherwise in local standard time. Days past the end of the month
/// are days of the next one.
///
/// A null text is a programming error: it is reported on standard error, and the result is 0.
time_t ZAN_ParseTimeString(const char *text, int flag) QX_NOEXCEPT;

/// ZAN_LocalZoneOffset returns the current offset of local time from UTC in minutes, negative west of Greenwich.
int ZAN_LocalZoneOffset(void) QX_NOEXCEPT;

/* ---- Parameter blocks ---- */

/// plus2space replaces each "+" of `text` by a blank. Returns a pointer to the terminating NUL.
char *plus2space(char *text) QX_NOEXCEPT;

/// pblock_form2pblock decodes a query string or HTML form and adds a parameter for each of its fields, with "+" and %xx
/// escapes decoded in names and values. `text` holds `length` characters and one more writable byte; it is overwritten.
/// A field without "=" is named by its number among such fields, from "1". The values of fields of the same name, and
/// of a parameter already in the block, are joined with commas into one parameter. Returns the result of the last
/// addition: 0, or -1 if allocation failed.
int pblock_form2pblock(char *text, int32_t length, pblock *block) QX_NOEXCEPT;

/// pblock_pblock2str_add_nl puts each name="value" pair of `text` on its own line: it replaces the character after a
/// value's closing quote by a newline. A backslash escapes the next character. Returns `text`.
char *pblock_pblock2str_add_nl(char *text) QX_NOEXCEPT;

/// pblock_pblock2rdm makes an RDM request from the parameters of a GET. It writes the RDM header to `header`, followed
/// by three newlines: "rdm-version" 1.0, "rdm-type" from "type", "rdm-query-language" from "ql" and
/// "catalog-service-id" from "csid". It writes an RDMQUERY object with "scope", "view-attributes", "view-hits" and
/// "view-order" to `query`. Missing or empty parameters produce no attribute; others are ignored. Both buffers are
/// flushed. Returns null, or a static text with the reason for a refusal; then the buffers are unchanged.
const char *pblock_pblock2rdm(pblock *block, csio *header, csio *query) QX_NOEXCEPT;

/// pblock_remove_n_free removes and releases the first parameter `name`. A null or unknown name is ignored. If
/// allocation fails, the parameter stays.
void pblock_remove_n_free(const char *name, pblock *block) QX_NOEXCEPT;

/* ---- Commands ---- */

/// cs_limited_cli_run runs `command` with /bin/sh in `directory` and waits for it. If `directory` is null or cannot be
/// entered, the command runs in the caller's. The command has the caller's standard streams and no other descriptor. If
/// `ignore_signals` is not 0, it ignores SIGINT, SIGTERM, SIGUSR1 and SIGUSR2. The reserved words and `pipe_flag` have
/// no effect. Returns the exit status, 0 to 255 (1 also if execl() failed, 0 also if a signal ended the command or
/// waitpid() failed), or -1 if fork() failed.
int cs_limited_cli_run(const char *command, const char *directory, long reserved1, long reserved2, int ignore_signals,
                       int pipe_flag) QX_NOEXCEPT;

/// cs_cli_run is cs_limited_cli_run without options.
int cs_cli_run(const char *command, const char *directory) QX_NOEXCEPT;

/// cs_cli_run_no_pipe does the same as cs_cli_run.
int cs_cli_run_no_pipe(const char *command, const char *directory) QX_NOEXCEPT;

/// cs_search_path looks for `name` in the directories that the environment variable `variable` lists, separated by
/// colons. Returns the path of the first that exists, or `name` itself if none does or the variable is unset. The text
/// is newly allocated, or null if allocation fails.
char *cs_search_path(const char *name, const char *variable) QX_NOEXCEPT;

/* ---- Digests ---- */

/// cs_mem2md5 stores the MD5 digest of `length` bytes in the 16 bytes at `out16` and returns `out16`. If `length` is
/// below 1, it is the digest of no bytes, and `data` may be null.
unsigned char *cs_mem2md5(const void *data, int32_t length, unsigned char *out16) QX_NOEXCEPT;

/// cs_mem2md5str writes the same digest as 32 lower-case hexadecimal digits and a NUL. Returns 2, the number of
/// characters of the last byte.
int cs_mem2md5str(const void *data, int32_t length, char *out33) QX_NOEXCEPT;

/* ---- Names of catalog services ---- */

/// csid_parse splits the URL of a catalog service: "x-catalog://host:port/name", or "x-catalogs://...". `name` and
/// `host` must hold as many bytes as the URL with its NUL. The host ends at the first colon, the name at white space;
/// the port is any number that fits an int. Returns 0, or 1, with both texts empty and the port 0, if a part is missing
/// or `csid` is null.
int csid_parse(const char *csid, char *name, char *host, int *port) QX_NOEXCEPT;

QX_END

#endif
