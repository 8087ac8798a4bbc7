// SPDX-License-Identifier: MIT
/* A host in C: it copies the POSIX table, replaces two entries and binds the result. */
#include <stdarg.h>
#include <string.h>

#include <qxapi/qxapi.h>

#include "check.h"

static char reported[64];
static int allocations = 0;

static void *count_and_alloc(size_t n) {
  ++allocations;
  return malloc(n);
}

static void keep_report(int degree, const char *function, Session *sn, Request *rq, const char *format, va_list list) {
  (void)degree;
  (void)function;
  (void)sn;
  (void)rq;
  vsnprintf(reported, sizeof reported, format, list);
}

int main(void) {
  qxapi_host host = *qxapi_posix_host();
  pblock *block;
  CHECK(host.version == QXAPI_VERSION);
  host.alloc = count_and_alloc;
  host.report_error = keep_report;
  qxapi_bind(&host);
  block = host_param_create(1);
  CHECK(host_param_parse("name=\"a value\"", block) == 1);
  CHECK(strcmp(host_param_find("name", block), "a value") == 0);
  CHECK(allocations > 0);
  host_param_free(block);
  host_report_error(0, "main", NULL, NULL, "%s %d", "number", 7);
  CHECK(strcmp(reported, "number 7") == 0);
  return 0;
}
