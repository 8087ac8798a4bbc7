// SPDX-License-Identifier: MIT
/// The POSIX host's operations, one declaration for each entry of its table, implemented in a file per subject.
#ifndef QXAPI_POSIX_H
#define QXAPI_POSIX_H

#include <qxapi/qxapi.h>

namespace rdm::posix_host {

void *allocate(size_t n);
void *reallocate(void *p, size_t n);
void release(void *p);
char *duplicate(const char *s);

pblock *param_create(int slots);
void param_free(pblock *b);
char *param_find(const char *name, const pblock *b);
host_param *param_find_entry(const char *name, pblock *b, int remove);
int param_add(const char *name, const char *value, pblock *b);
void param_free_entry(host_param *e);
int param_parse(const char *line, pblock *b);

int request_header(const char *name, char **value, Session *sn, Request *rq);
int input_next(host_input *in, int n);
void set_status(Session *sn, Request *rq, int status, const char *reason);
int start_response(Session *sn, Request *rq);
int net_write(host_net *socket, const void *bytes, int32_t count);

host_buffer *buffer_open(host_fd fd, int size);
int read_line(host_buffer *b, int line_number, int limit, char *line);
void buffer_close(host_buffer *b);
int64_t buffer_send(host_buffer *b, host_net *socket);

host_fd open_read(const char *path);
host_fd open_write(const char *path);
host_fd open_append(const char *path);
host_fd open_readwrite(const char *path);
int32_t read_bytes(host_fd fd, void *buffer, int32_t n);
int write_bytes(host_fd fd, const void *bytes, int32_t n);
int write_log(host_fd fd, const void *bytes, int32_t n);
int64_t seek(host_fd fd, int64_t offset, int whence);
int close_file(host_fd fd);
int file_status(const char *path, struct stat *st);
int remove_file(const char *path);

host_crit *crit_create();
void crit_enter(host_crit *c);
void crit_exit(host_crit *c);
void register_exit(void (*fn)(void *), void *argument);

void report_error(int degree, const char *function, Session *sn, Request *rq, const char *format, va_list arguments)
    QX_PRINTF(5, 0);
char *last_error_text();
int format(char *buffer, size_t size, const char *format, va_list arguments) QX_PRINTF(3, 0);
int format_time(char *buffer, size_t size, const char *format, const struct tm *tm);
int decimal(int64_t n, char *buffer);
struct tm *utc(const time_t *t, struct tm *out);
void unescape(char *text);
int thread_id();

/// table is the POSIX host. It is constant, so that other constants can be made of it.
inline constexpr qxapi_host table = {
    .version = QXAPI_VERSION,
    .alloc = allocate,
    .realloc = reallocate,
    .free = release,
    .strdup = duplicate,
    .param_create = param_create,
    .param_free = param_free,
    .param_find = param_find,
    .param_find_entry = param_find_entry,
    .param_add = param_add,
    .param_free_entry = param_free_entry,
    .param_parse = param_parse,
    .request_header = request_header,
    .input_next = input_next,
    .set_status = set_status,
    .start_response = start_response,
    .net_write = net_write,
    .buffer_open = buffer_open,
    .getline = read_line,
    .buffer_close = buffer_close,
    .buffer_send = buffer_send,
    .open_read = open_read,
    .open_write = open_write,
    .open_append = open_append,
    .open_readwrite = open_readwrite,
    .read = read_bytes,
    .write = write_bytes,
    .write_log = write_log,
    .seek = seek,
    .close = close_file,
    .stat = file_status,
    .unlink = remove_file,
    .crit_create = crit_create,
    .crit_enter = crit_enter,
    .crit_exit = crit_exit,
    .register_exit = register_exit,
    .report_error = report_error,
    .last_error_text = last_error_text,
    .format = format,
    .format_time = format_time,
    .itoa = decimal,
    .gmtime = utc,
    .unescape = unescape,
    .thread_id = thread_id,
};

}  // namespace rdm::posix_host

#endif
