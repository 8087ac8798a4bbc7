// SPDX-License-Identifier: MIT
/*
 * QXAPI 3.0, the host's plug-in API: everything that the libraries need from the program that loaded them.
 *
 * Memory, files, parameter blocks, critical sections, time and the client connection are reached through one table of
 * functions. A host server copies the POSIX table, replaces the entries that it implements itself and binds the result
 * once, before it calls the plug-in. Until a table is bound, the POSIX host is in force, so programs without a server
 * can use the libraries as well.
 *
 * Conventions: null pointers are not accepted unless a function says so. Text is NUL-terminated. A returned pointer
 * belongs to the host unless the function's comment says how the caller frees it. Request statuses are HOST_DONE,
 * HOST_ABORT and HOST_NOT_HANDLED. Only critical sections synchronise threads: one thread at a time may use a parameter
 * block, a reader or an input.
 */
#ifndef QXAPI_QXAPI_H
#define QXAPI_QXAPI_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <time.h>

/* QX_BEGIN and QX_END enclose declarations with C linkage that the shared libraries export. QX_NOEXCEPT marks a
   procedure that never throws; QX_PRINTF lets the compiler check format arguments. */
#ifdef __cplusplus
#define QX_BEGIN \
  extern "C" {   \
  _Pragma("GCC visibility push(default)")
#define QX_END                  \
  _Pragma("GCC visibility pop") \
  }
#define QX_NOEXCEPT noexcept
#else
#define QX_BEGIN _Pragma("GCC visibility push(default)")
#define QX_END _Pragma("GCC visibility pop")
#define QX_NOEXCEPT __attribute__((__nothrow__))
#endif
#define QX_PRINTF(format_index, first_argument) __attribute__((__format__(__printf__, format_index, first_argument)))

QX_BEGIN

#define QXAPI_VERSION 0x0300u

/// pblock is a list of name/value pairs. Names are compared exactly; if several pairs have the same name, lookups find
/// the one added first.
typedef struct pblock pblock;

/// host_param is one pair of a parameter block; `next` belongs to the block that holds the pair.
typedef struct host_param {
  char *name;
  char *value;
  struct host_param *next;
} host_param;

/// host_fd is an open file; -1 means none.
typedef int host_fd;

/// host_crit is a critical section, entered by one thread at a time and not recursive.
typedef struct host_crit host_crit;

/// host_buffer is a buffered reader over a descriptor that it does not own.
typedef struct host_buffer host_buffer;

/// host_net is the host's own handle of the client connection.
typedef struct host_net host_net;

/// host_input is the part of the request body that has arrived: `size` bytes at `data`; `position` is the index of the
/// next unread byte. `source` belongs to the host.
typedef struct host_input {
  const unsigned char *data;
  int32_t position;
  int32_t size;
  void *source;
} host_input;

/// Session is one client connection. `client` holds at least "ip".
typedef struct Session {
  pblock *client;
  host_net *socket;
  host_input *input;
  void *host;
} Session;

/// Request is one HTTP request: `line` holds "method", "uri" and, if there is one, "query"; `headers` the request
/// headers under lower-case names; `response` the response headers; `vars` values that one step of a request leaves for
/// a later one.
typedef struct Request {
  pblock *line;
  pblock *headers;
  pblock *response;
  pblock *vars;
  int status;
  void *host;
} Request;

enum { HOST_DONE = 0, HOST_ABORT = -1, HOST_NOT_HANDLED = -2 };

/* ---- Memory ---- */

/// host_alloc returns `n` uninitialised bytes, or null. host_free releases them.
void *host_alloc(size_t n) QX_NOEXCEPT;

/// host_realloc resizes a block of host_alloc (null: allocates one). Returns the block, which may have moved, or null;
/// then the old block is unchanged.
void *host_realloc(void *p, size_t n) QX_NOEXCEPT;

/// host_free releases a block of host_alloc, host_realloc or host_strdup; null is ignored.
void host_free(void *p) QX_NOEXCEPT;

/// host_strdup returns a copy of `s`, which the caller releases with host_free, or null.
char *host_strdup(const char *s) QX_NOEXCEPT;

/* ---- Parameter blocks ---- */

/// host_param_create returns an empty block, or null if allocation fails. `slots` (at least 1) is a size hint: the
/// POSIX host allocates room for so many short pairs, at most 32, with the block.
pblock *host_param_create(int slots) QX_NOEXCEPT;

/// host_param_free releases a block with all its pairs; null is ignored.
void host_param_free(pblock *b) QX_NOEXCEPT;

/// host_param_find returns the value of the first pair of `name`, borrowed from the block, or null. The POSIX host
/// indexes blocks of more than a few pairs by name.
char *host_param_find(const char *name, const pblock *b) QX_NOEXCEPT;

/// host_param_find_entry returns the first pair of `name`, or null, also if allocation fails. If `remove` is not 0, the
/// pair leaves the block and the caller releases it with host_param_free_entry. The caller of a pair that stays may
/// replace `value` at any time, and `name` until the next lookup in this block: it releases the old text with
/// host_free; the new text must come from host_alloc. A value that was found before may be an older copy.
host_param *host_param_find_entry(const char *name, pblock *b, int remove) QX_NOEXCEPT;

/// host_param_add appends a pair with copies of `name` and `value`. Returns 0, or -1 if allocation fails.
int host_param_add(const char *name, const char *value, pblock *b) QX_NOEXCEPT;

/// host_param_free_entry releases a detached pair; null is ignored.
void host_param_free_entry(host_param *e) QX_NOEXCEPT;

/// host_param_parse adds the pairs of a configuration line to the block. A line holds `name=value` or `name="value"`
/// pairs, separated by blanks or tabs. In either form, a backslash makes the next character part of the value. A quote
/// that is not closed ends with the line; a word without "=" is ignored. Returns the number of pairs, or -1 if
/// allocation fails.
int host_param_parse(const char *line, pblock *b) QX_NOEXCEPT;

/* ---- The request and the client connection ---- */

/// host_request_header looks up a request header by name, in any letter case. `*value` is borrowed from the request, or
/// null if the header is absent. Returns 0.
int host_request_header(const char *name, char **value, Session *sn, Request *rq) QX_NOEXCEPT;

/// host_input_next returns the next byte of the input, 0 at its end, or -1 on error. It refills an input whose bytes
/// are all read; `n` is the number of bytes that the caller would like.
int host_input_next(host_input *in, int n) QX_NOEXCEPT;

/// host_set_status sets the HTTP status of the answer; if `reason` is null, the usual text of the status is sent.
void host_set_status(Session *sn, Request *rq, int status, const char *reason) QX_NOEXCEPT;

/// host_start_response sends the status line and the response headers. Returns a request status.
int host_start_response(Session *sn, Request *rq) QX_NOEXCEPT;

/// host_net_write sends `count` bytes to the client. Returns `count`, or -1.
int host_net_write(host_net *socket, const void *bytes, int32_t count) QX_NOEXCEPT;

/* ---- Buffered readers ---- */

/// host_buffer_open returns a reader over `fd` with a buffer of `size` bytes (at least 1), or null.
host_buffer *host_buffer_open(host_fd fd, int size) QX_NOEXCEPT;

/// host_getline reads the next line into `line`, which holds `limit` bytes with the NUL. It drops the newline, a
/// carriage return before it, and the rest of a longer line. `line_number` is for the host's own messages. Returns 0
/// for a line (the last one may lack its newline), 1 at the end of the file, or -1 on a read error.
int host_getline(host_buffer *b, int line_number, int limit, char *line) QX_NOEXCEPT;

/// host_buffer_close releases the reader, not its descriptor; null is ignored.
void host_buffer_close(host_buffer *b) QX_NOEXCEPT;

/// host_buffer_send sends the rest of the reader's file to the client. Returns the number of bytes sent, or -1.
int64_t host_buffer_send(host_buffer *b, host_net *socket) QX_NOEXCEPT;

/* ---- Files. After a failure, host_last_error_text returns the reason. ---- */

/// host_open_read opens an existing file for reading. Like the other three, it returns a descriptor, or -1.
host_fd host_open_read(const char *path) QX_NOEXCEPT;

/// host_open_write opens a file for reading and appending. It tries O_CREAT|O_EXCL with mode 0600; on EEXIST it opens
/// the file with O_TRUNC.
host_fd host_open_write(const char *path) QX_NOEXCEPT;

/// host_open_append opens a file for appending. It creates a missing file with mode 0644, less the umask.
host_fd host_open_append(const char *path) QX_NOEXCEPT;

/// host_open_readwrite opens a file for reading and writing. It creates a missing file with mode 0644, less the umask.
host_fd host_open_readwrite(const char *path) QX_NOEXCEPT;

/// host_read reads up to `n` bytes, fewer only at the end of the file. Returns the number of bytes read, or -1.
int32_t host_read(host_fd fd, void *buffer, int32_t n) QX_NOEXCEPT;

/// host_write writes `n` bytes. Returns 1 if all were written, else 0.
int host_write(host_fd fd, const void *bytes, int32_t n) QX_NOEXCEPT;

/// host_write_log appends `n` bytes with a single write(). Returns 1 if all were written, else 0.
int host_write_log(host_fd fd, const void *bytes, int32_t n) QX_NOEXCEPT;

/// host_seek moves the file position like lseek(). Returns the new position, or -1.
int64_t host_seek(host_fd fd, int64_t offset, int whence) QX_NOEXCEPT;

/// host_close closes a descriptor. Returns 0, or -1.
int host_close(host_fd fd) QX_NOEXCEPT;

/// host_stat fills `st` with the status of `path`. Returns 0, or -1.
int host_stat(const char *path, struct stat *st) QX_NOEXCEPT;

/// host_unlink removes `path`. Returns 0, or -1.
int host_unlink(const char *path) QX_NOEXCEPT;

/* ---- Critical sections and exits ---- */

/// host_crit_create returns a new critical section, or null. Sections live as long as the process.
host_crit *host_crit_create(void) QX_NOEXCEPT;

/// host_crit_enter enters the section, after waiting until no other thread is inside.
void host_crit_enter(host_crit *c) QX_NOEXCEPT;

/// host_crit_exit leaves the section.
void host_crit_exit(host_crit *c) QX_NOEXCEPT;

/// host_register_exit registers `fn(argument)` to be called at shutdown, in the order of registration. If allocation
/// fails in the POSIX host, the exit is dropped without a report.
void host_register_exit(void (*fn)(void *), void *argument) QX_NOEXCEPT;

/* ---- Reports and text ---- */

/// host_report_error writes one line to the host's error log. The POSIX host writes to standard error, escapes control
/// characters in the text and cuts the line at 8191 bytes. A `degree` of 0 is a failure; higher ones are less severe.
/// Session and request may be null.
void host_report_error(int degree, const char *function, Session *sn, Request *rq, const char *format, ...) QX_NOEXCEPT
    QX_PRINTF(5, 6);

/// host_last_error_text returns the text of the calling thread's errno, valid until that thread's next call.
char *host_last_error_text(void) QX_NOEXCEPT;

/// host_format formats into `buffer`, of `size` bytes; the text is cut to fit and always terminated. Returns the length
/// of the stored text.
int host_format(char *buffer, size_t size, const char *format, ...) QX_NOEXCEPT QX_PRINTF(3, 4);

/// host_format_time is strftime() in the C locale. Returns the length of the stored text, or 0, with an empty text, if
/// it does not fit.
int host_format_time(char *buffer, size_t size, const char *format, const struct tm *tm) QX_NOEXCEPT;

/// host_itoa writes `n` in decimal into `buffer`, of at least 21 bytes. Returns the length of the text.
int host_itoa(int64_t n, char *buffer) QX_NOEXCEPT;

/// host_gmtime fills `out` with the UTC fields of `*t`. Returns `out`, or null if the year does not fit.
struct tm *host_gmtime(const time_t *t, struct tm *out) QX_NOEXCEPT;

/// host_unescape decodes each "%" that two hexadecimal digits follow, in place; malformed escapes are kept.
void host_unescape(char *text) QX_NOEXCEPT;

/// host_thread_id returns a non-negative number that differs between all running threads.
int host_thread_id(void) QX_NOEXCEPT;

/* ---- The table ---- */

/// qxapi_host holds one function for each operation above, in the same order. The variadic host_report_error and
/// host_format call the two entries that take a va_list.
typedef struct qxapi_host {
  uint32_t version; /* QXAPI_VERSION */
  void *(*alloc)(size_t n);
  void *(*realloc)(void *p, size_t n);
  void (*free)(void *p);
  char *(*strdup)(const char *s);
  pblock *(*param_create)(int slots);
  void (*param_free)(pblock *b);
  char *(*param_find)(const char *name, const pblock *b);
  host_param *(*param_find_entry)(const char *name, pblock *b, int remove);
  int (*param_add)(const char *name, const char *value, pblock *b);
  void (*param_free_entry)(host_param *e);
  int (*param_parse)(const char *line, pblock *b);
  int (*request_header)(const char *name, char **value, Session *sn, Request *rq);
  int (*input_next)(host_input *in, int n);
  void (*set_status)(Session *sn, Request *rq, int status, const char *reason);
  int (*start_response)(Session *sn, Request *rq);
  int (*net_write)(host_net *socket, const void *bytes, int32_t count);
  host_buffer *(*buffer_open)(host_fd fd, int size);
  int (*getline)(host_buffer *b, int line_number, int limit, char *line);
  void (*buffer_close)(host_buffer *b);
  int64_t (*buffer_send)(host_buffer *b, host_net *socket);
  host_fd (*open_read)(const char *path);
  host_fd (*open_write)(const char *path);
  host_fd (*open_append)(const char *path);
  host_fd (*open_readwrite)(const char *path);
  int32_t (*read)(host_fd fd, void *buffer, int32_t n);
  int (*write)(host_fd fd, const void *bytes, int32_t n);
  int (*write_log)(host_fd fd, const void *bytes, int32_t n);
  int64_t (*seek)(host_fd fd, int64_t offset, int whence);
  int (*close)(host_fd fd);
  int (*stat)(const char *path, struct stat *st);
  int (*unlink)(const char *path);
  host_crit *(*crit_create)(void);
  void (*crit_enter)(host_crit *c);
  void (*crit_exit)(host_crit *c);
  void (*register_exit)(void (*fn)(void *), void *argument);
  void (*report_error)(int degree, const char *function, Session *sn, Request *rq, const char *format,
                       va_list arguments);
  char *(*last_error_text)(void);
  int (*format)(char *buffer, size_t size, const char *format, va_list arguments);
  int (*format_time)(char *buffer, size_t size, const char *format, const struct tm *tm);
  int (*itoa)(int64_t n, char *buffer);
  struct tm *(*gmtime)(const time_t *t, struct tm *out);
  void (*unescape)(char *text);
  int (*thread_id)(void);
} qxapi_host;

/// qxapi_bind makes a copy of `host` the table of the whole process; null restores the POSIX host. Call it before other
/// threads use the library.
void qxapi_bind(const qxapi_host *host) QX_NOEXCEPT;

/// qxapi_posix_host returns the complete POSIX table, for hosts to copy and override. It has no client connection:
/// net_write and buffer_send fail, and host_input_next returns 0 after the last byte of `data`.
const qxapi_host *qxapi_posix_host(void) QX_NOEXCEPT;

QX_END

#endif
