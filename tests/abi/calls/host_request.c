// SPDX-License-Identifier: MIT
/* The host's procedures for requests. The POSIX host has no client, so their results are known. */
#include <errno.h>

#include <qxapi/qxapi.h>
#include <qxapi/slice.h>

#include "check.h"

static void read_a_request(void) {
  char *value = NULL;
  Request request = {0};
  host_input input = {(const unsigned char *)"ab", 0, 2, NULL};
  request.headers = host_param_create(1);
  CHECK(host_param_add("content-length", "2", request.headers) == 0);
  CHECK(host_request_header("Content-Length", &value, NULL, &request) == 0);
  CHECK_TEXT(value, "2");
  CHECK(host_request_header("host", &value, NULL, &request) == 0);
  CHECK(value == NULL);
  host_param_free(request.headers);

  CHECK(host_input_next(&input, 1) == 'a');
  CHECK(host_input_next(&input, 1) == 'b');
  CHECK(host_input_next(&input, 1) == 0);
}

static void answer_it(void) {
  Session session = {0};
  Request request = {0};
  host_set_status(&session, &request, 404, NULL);
  CHECK(request.status == 404);
  CHECK(host_start_response(&session, &request) == HOST_DONE);
  CHECK(host_net_write(session.socket, "bytes", 5) == -1);
}

static int64_t send_slice(host_net *socket, const host_slice *slice) { return socket == NULL ? slice->length : -1; }

static void send_from_a_file(void) {
  const host_slice slice = {0, 0, 0, 1, 7};
  CHECK(sizeof(host_place) == 16);
  CHECK(host_sends_slices() == 0);
  CHECK(host_send_slice(NULL, &slice) == -1);
  CHECK(errno == ENOSYS);
  qxapi_bind_slices(send_slice);
  CHECK(host_sends_slices() == 1);
  CHECK(host_send_slice(NULL, &slice) == 7);
  qxapi_bind(NULL);
  CHECK(host_sends_slices() == 0);
}

static void report(void) {
  char line[64] = "";
  CHECK(freopen("reports", "w+", stderr) != NULL);
  host_report_error(0, "main", NULL, NULL, "%s %d", "number", 7);
  host_report_error(1, "main", NULL, NULL, "less severe");
  rewind(stderr);
  CHECK(fgets(line, sizeof line, stderr) == line);
  CHECK_TEXT(line, "failure main: number 7\n");
  CHECK(fgets(line, sizeof line, stderr) == line);
  CHECK_TEXT(line, "report main: less severe\n");
}

int main(void) {
  read_a_request();
  answer_it();
  send_from_a_file();
  report();
  return 0;
}
