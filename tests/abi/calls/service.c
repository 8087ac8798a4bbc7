// SPDX-License-Identifier: MIT
/* The service from its start to its end: configuration, a request, the transaction log. */
#include "server.h"
#include "service/rdm.h"

#define CSID "x-catalog://localhost:80/test"
#define HEADER "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n"

static void start(void) {
  pblock *parameters = host_param_create(1);
  write_file("rdm.conf", "# the service\nbindir=\"bin\" csid-config=\"csid.conf\" csid-default=\"" CSID
                         "\"\n"
                         "logfile=\"rdm.log\" debug-logfile=\"debug.log\" debug-loglevel=\"1\"\n");
  write_file("csid.conf", "csid=\"" CSID "\"\n");
  write_file("rdm.log", "");
  CHECK(rdm_init(parameters, NULL, NULL) == -1);
  CHECK_TEXT(host_param_find("error", parameters), "rdm-init requires 'config' parameter.");
  CHECK(host_param_add("config", "rdm.conf", parameters) == 0);
  CHECK(rdm_init(parameters, NULL, NULL) == 0);
  CHECK(rdm_service_crit != NULL && rdm_log_crit != NULL);
  CHECK_TEXT(logfile, "rdm.log");
  CHECK(logfd != -1);
  CHECK_TEXT(cs_csidcf, "csid.conf");
  host_param_free(parameters);
}

static void start_without_a_catalog(void) {
  const host_crit *service = rdm_service_crit, *log = rdm_log_crit;
  pblock *config = host_param_create(1);
  CHECK(host_param_parse("bindir=bin debug-logfile=debug.log", config) == 2);
  CHECK(rdm_init_real(config, NULL, NULL) == -1);
  CHECK_TEXT(host_param_find("error", config), "Parameter 'csid-config' required by rdm-init in configuration file.\n");
  CHECK(rdm_service_crit == service && rdm_log_crit == log);
  host_param_free(config);
}

static void serve(int (*entry)(pblock *pb, Session *sn, Request *rq)) {
  const char *line;
  exchange x;
  begin(&x, "GET", "/rdm/status-request", "");
  CHECK(rdm_type(NULL, &x.session, &x.request) == HOST_DONE);
  CHECK_TEXT(host_param_find("content-type", x.request.response), "application/x-rdm");
  CHECK(entry(NULL, &x.session, &x.request) == HOST_DONE);
  CHECK(x.request.status == 200);
  CHECK_SENT(HEADER "}\n\n\n\n\nOnline.\n");
  CHECK(rdm_log(NULL, &x.session, &x.request) == 0);
  line = read_file("rdm.log");
  CHECK(strncmp(line, "192.0.2.7 - - [", 15) == 0);
  CHECK(strstr(line, "] \"STATUS OK sent\" - -\n") != NULL);
  end(&x);
}

static void leave_to_others(void) {
  exchange x;
  begin(&x, "GET", "/index.html", "");
  CHECK(rdm_type(NULL, &x.session, &x.request) == HOST_NOT_HANDLED);
  end(&x);
}

static void refuse(void) {
  exchange x;
  begin(&x, "GET", "/rdm/incoming", "");
  CHECK(rdm_stop("Not so.", "main", HOST_ABORT, &x.session, &x.request) == HOST_ABORT);
  CHECK_SENT(HEADER "rdm-error-message{7}:\tNot so.\n}\n\n\n\n\nNot so.\n\n");
  CHECK_TEXT(reported, "Not so.");
  end(&x);
}

static void send_a_result(void) {
  exchange x;
  csio *result = csio_create(&result);
  CHECK(csio_append(result, "bytes", 5) == 5);
  begin(&x, "GET", "/rdm/incoming", "");
  CHECK(rdm_send_http_header(5, &x.session, &x.request) == HOST_DONE);
  CHECK_TEXT(host_param_find("content-length", x.request.response), "5");
  CHECK(rdm_send_result(0, result, &x.session, &x.request) == 0);
  CHECK_SENT("bytes");
  end(&x);
}

static void add_to_the_log(void) {
  exchange x;
  begin(&x, "GET", "/rdm/incoming", "");
  CHECK(rdm_log_add("message", NULL, "7", &x.session, &x.request) == 0);
  CHECK(strstr(host_param_find("rdm-log-message", x.request.vars), "] \"message\" - 7\n") != NULL);
  rdm_log_terminate();
  CHECK(logfd == -1);
  CHECK(rdm_log(NULL, &x.session, &x.request) == 0);
  CHECK(strstr(read_file("rdm.log"), "message") == NULL);
  end(&x);
}

int main(void) {
  bind_server();
  CHECK(logfd == -1 && logfile[0] == '\0');
  start();
  serve(rdm_service);
  serve(_real_rdm_service);
  leave_to_others();
  refuse();
  send_a_result();
  add_to_the_log();
  CHECK(rdm_validate_uri("/rdm/status-request", RDM_STATUS_REQUEST) == 1);
  CHECK(rdm_validate_uri("/rdm/status-request", RDM_RD_REQUEST) == 0);
  start_without_a_catalog();
  return 0;
}
