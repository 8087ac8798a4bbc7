// SPDX-License-Identifier: MIT
/* A host in C that keeps the bytes sent to its client, and one exchange. */
#ifndef TESTS_ABI_CALLS_SERVER_H
#define TESTS_ABI_CALLS_SERVER_H

#include <qxapi/qxapi.h>

#include "files.h"

static char sent[8192], reported[256];

static int keep_sent(host_net *socket, const void *bytes, int32_t count) {
  const size_t before = strlen(sent), length = (size_t)count;
  (void)socket;
  CHECK(before + length < sizeof sent);
  memcpy(sent + before, bytes, length);
  sent[before + length] = '\0';
  return count;
}

/* send_lines sends the rest of a text file. */
static int64_t send_lines(host_buffer *reader, host_net *socket) {
  char line[256];
  int64_t length = 0;
  while (host_getline(reader, 0, sizeof line, line) == 0) {
    strcat(line, "\n");
    length += keep_sent(socket, line, (int32_t)strlen(line));
  }
  return length;
}

static void keep_report(int degree, const char *function, Session *sn, Request *rq, const char *format, va_list list) {
  (void)sn;
  (void)rq;
  CHECK(degree == 0 && function != NULL);
  vsnprintf(reported, sizeof reported, format, list);
}

static inline void bind_server(void) {
  qxapi_host host = *qxapi_posix_host();
  host.net_write = keep_sent;
  host.buffer_send = send_lines;
  host.report_error = keep_report;
  qxapi_bind(&host);
}

typedef struct exchange {
  Session session;
  Request request;
  host_input input;
} exchange;

/* begin makes a request with a body and clears `sent` and `reported`. */
static inline void begin(exchange *x, const char *method, const char *uri, const char *body) {
  memset(x, 0, sizeof *x);
  sent[0] = reported[0] = '\0';
  x->session.client = host_param_create(1);
  x->session.input = &x->input;
  x->input.data = (const unsigned char *)body;
  x->input.size = (int32_t)strlen(body);
  x->request.line = host_param_create(3);
  x->request.headers = host_param_create(3);
  x->request.response = host_param_create(3);
  x->request.vars = host_param_create(3);
  CHECK(host_param_add("ip", "192.0.2.7", x->session.client) == 0);
  CHECK(host_param_add("method", method, x->request.line) == 0);
  CHECK(host_param_add("uri", uri, x->request.line) == 0);
}

static inline void end(exchange *x) {
  host_param_free(x->session.client);
  host_param_free(x->request.line);
  host_param_free(x->request.headers);
  host_param_free(x->request.response);
  host_param_free(x->request.vars);
}

/* CHECK_SENT compares the bytes sent since begin or the previous check. */
#define CHECK_SENT(expected)    \
  do {                          \
    CHECK_TEXT(sent, expected); \
    sent[0] = '\0';             \
  } while (0)

#endif
