// SPDX-License-Identifier: MIT
#include <qxapi/qxapi.h>
#include <qxapi/slice.h>

#include "qxapi/posix.h"

namespace {

/// The table in force. It is initialised before any code runs, so a call need not ask whether it is.
constinit qxapi_host bound = rdm::posix_host::table;

}  // namespace

void qxapi_bind(const qxapi_host *host) noexcept {
  bound = host != nullptr ? *host : *qxapi_posix_host();
  // The procedure belongs to the host whose table was bound before.
  qxapi_bind_slices(nullptr);
}

void *host_alloc(size_t n) noexcept { return bound.alloc(n); }
void *host_realloc(void *p, size_t n) noexcept { return bound.realloc(p, n); }
void host_free(void *p) noexcept { bound.free(p); }
char *host_strdup(const char *s) noexcept { return bound.strdup(s); }

pblock *host_param_create(int slots) noexcept { return bound.param_create(slots); }
void host_param_free(pblock *b) noexcept { bound.param_free(b); }
char *host_param_find(const char *name, const pblock *b) noexcept { return bound.param_find(name, b); }
host_param *host_param_find_entry(const char *name, pblock *b, int remove) noexcept {
  return bound.param_find_entry(name, b, remove);
}
int host_param_add(const char *name, const char *value, pblock *b) noexcept { return bound.param_add(name, value, b); }
void host_param_free_entry(host_param *e) noexcept { bound.param_free_entry(e); }
int host_param_parse(const char *line, pblock *b) noexcept { return bound.param_parse(line, b); }

int host_request_header(const char *name, char **value, Session *sn, Request *rq) noexcept {
  return bound.request_header(name, value, sn, rq);
}
int host_input_next(host_input *in, int n) noexcept { return bound.input_next(in, n); }
void host_set_status(Session *sn, Request *rq, int status, const char *reason) noexcept {
  bound.set_status(sn, rq, status, reason);
}
int host_start_response(Session *sn, Request *rq) noexcept { return bound.start_response(sn, rq); }
int host_net_write(host_net *socket, const void *bytes, int32_t count) noexcept {
  return bound.net_write(socket, bytes, count);
}

host_buffer *host_buffer_open(host_fd fd, int size) noexcept { return bound.buffer_open(fd, size); }
int host_getline(host_buffer *b, int line_number, int limit, char *line) noexcept {
  return bound.getline(b, line_number, limit, line);
}
void host_buffer_close(host_buffer *b) noexcept { bound.buffer_close(b); }
int64_t host_buffer_send(host_buffer *b, host_net *socket) noexcept { return bound.buffer_send(b, socket); }

host_fd host_open_read(const char *path) noexcept { return bound.open_read(path); }
host_fd host_open_write(const char *path) noexcept { return bound.open_write(path); }
host_fd host_open_append(const char *path) noexcept { return bound.open_append(path); }
host_fd host_open_readwrite(const char *path) noexcept { return bound.open_readwrite(path); }
int32_t host_read(host_fd fd, void *buffer, int32_t n) noexcept { return bound.read(fd, buffer, n); }
int host_write(host_fd fd, const void *bytes, int32_t n) noexcept { return bound.write(fd, bytes, n); }
int host_write_log(host_fd fd, const void *bytes, int32_t n) noexcept { return bound.write_log(fd, bytes, n); }
int64_t host_seek(host_fd fd, int64_t offset, int whence) noexcept { return bound.seek(fd, offset, whence); }
int host_close(host_fd fd) noexcept { return bound.close(fd); }
int host_stat(const char *path, struct stat *st) noexcept { return bound.stat(path, st); }
int host_unlink(const char *path) noexcept { return bound.unlink(path); }

host_crit *host_crit_create(void) noexcept { return bound.crit_create(); }
void host_crit_enter(host_crit *c) noexcept { bound.crit_enter(c); }
void host_crit_exit(host_crit *c) noexcept { bound.crit_exit(c); }
void host_register_exit(void (*fn)(void *), void *argument) noexcept { bound.register_exit(fn, argument); }

void host_report_error(int degree, const char *function, Session *sn, Request *rq, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  bound.report_error(degree, function, sn, rq, format, arguments);
  va_end(arguments);
}

int host_format(char *buffer, size_t size, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const int length = bound.format(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

char *host_last_error_text(void) noexcept { return bound.last_error_text(); }
int host_format_time(char *buffer, size_t size, const char *format, const struct tm *tm) noexcept {
  return bound.format_time(buffer, size, format, tm);
}
int host_itoa(int64_t n, char *buffer) noexcept { return bound.itoa(n, buffer); }
struct tm *host_gmtime(const time_t *t, struct tm *out) noexcept {
  return bound.gmtime(t, out);
}
void host_unescape(char *text) noexcept { bound.unescape(text); }
int host_thread_id(void) noexcept { return bound.thread_id(); }
