// SPDX-License-Identifier: MIT
/* RDM headers and the handlers of messages. */
#include "server.h"
#include "service/csid.h"
#include "service/rdm.h"

#define HEADER(type) "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type" type "\n"
#define STATUS HEADER("{15}:\tstatus-response")

static void parse_and_print(void) {
  static const char text[] = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{14}:\tstatus-request\n}\n\n";
  csio *io = csio_create(&io);
  rdmhdr *header = NULL;
  rdmhdr_create(&header);
  CHECK(header != NULL && header->version == NULL);
  CHECK(csio_append(io, text, (int32_t)strlen(text)) == (int32_t)strlen(text));
  CHECK(rdmhdr_parse(io, header) == 0);
  CHECK(header->type == RDM_STATUS_REQUEST);
  CHECK_TEXT(header->csid, "unknown");
  rdmhdr_reset(header);
  CHECK(header->type == RDM_UNKNOWN && header->csid == NULL);
  CHECK_TEXT(header->version, "1.0");
  csio_reset(io);
  CHECK(rdmhdr_parse(io, header) == 1);
  header->type = RDM_STATUS_RESPONSE;
  CHECK(rdmhdr_print(header, io) == 0);
  CHECK_TEXT((char *)io->data, STATUS "}\n\n\n");
  rdmhdr_destroy(header);
  csio_destroy(io);
}

/* ask calls a handler with a message of a type. Returns the text of the answer, or the name of its file. */
static const char *ask(rdm_handler handler, int32_t type) {
  static char answer[1024];
  csio *input = csio_create(&input), *output = csio_create(&output);
  rdmhdr *header = NULL;
  exchange x;
  begin(&x, "POST", "/rdm/incoming", "");
  rdmhdr_create(&header);
  rdmhdr_reset(header);
  header->type = type;
  header->csid = host_strdup("c");
  CHECK(handler(header, input, output, &x.session, &x.request) == 0);
  CHECK(csio_finish(output) == 0);
  csio_rewind(output);
  if (output->flags == CSIO_FILE)
    strcpy(answer, output->filename);
  else
    answer[csio_copy(output, answer, sizeof answer - 1)] = '\0';
  rdmhdr_destroy(header);
  csio_destroy(output);
  csio_destroy(input);
  end(&x);
  return answer;
}

/* dispatch is a handler that calls the service's handler for the type. */
static int32_t dispatch(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) {
  int32_t gzip = 7, status = 7;
  CHECK(rdm_get_response(header, input, sn, rq, output, &gzip, &status) == 0);
  CHECK(gzip == 0);
  return status;
}

static int32_t import_nothing(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) {
  return rds_status_ok("text", "error", header, input, output, sn, rq);
}

static int32_t refuse_language(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) {
  (void)sn;
  (void)rq;
  return rds_qmgr_do_error(header, input, output);
}

static void answer(void) {
  CHECK_TEXT(ask(dispatch, RDM_STATUS_REQUEST), STATUS "}\n\n\n\n\nOnline.\n");
  CHECK_TEXT(ask(status_ok, RDM_STATUS_REQUEST), STATUS "}\n\n\n\n\nOnline.\n");
  CHECK_TEXT(ask(status_illegal, RDM_STATUS_REQUEST),
             STATUS "rdm-error-message{24}:\tIllegal RDM interaction.\n}\n\n\n");
  CHECK_TEXT(ask(rdm_msg_handler_default, RDM_RD_RESPONSE),
             STATUS "rdm-error-message{57}:\tRDM-Type=rd-response is not supported by this RDM server.\n}\n\n\n");
  CHECK_TEXT(ask(import_nothing, RDM_RD_RESPONSE), STATUS "rdm-error-message{5}:\terror\n}\n\n\n\n\ntext\n\n");
  CHECK_TEXT(ask(refuse_language, RDM_RD_REQUEST),
             STATUS "rdm-error-message{27}:\tUnsupported query language.\n}\n\n\n\n\nUnsupported query language.\n");
}

static void hand_out_files(void) {
  write_file("csid.conf", "csid=\"c\" server-description=\"server.rdm\" taxonomy-description=\"missing.rdm\"\n");
  write_file("server.rdm", "@SERVER { -\n}\n");
  CHECK(csid_init("csid.conf", "c") == 0);
  CHECK_TEXT(ask(sd_request, RDM_SERVER_REQUEST), "server.rdm");
  CHECK_TEXT(
      ask(schema_request, RDM_SCHEMA_REQUEST),
      HEADER(
          "{27}:\tschema-description-response") "rdm-error-message{34}:\tSchema description is unavailable.\n}\n\n\n");
  CHECK_TEXT(
      ask(tax_request, RDM_TAXONOMY_REQUEST),
      HEADER("{29}:\ttaxonomy-description-response") "rdm-error-message{24}:\tTaxonomy is unavailable.\n}\n\n\n");
  csid_terminate();
}

int main(void) {
  bind_server();
  parse_and_print();
  answer();
  hand_out_files();
  CHECK(rdm_encode_gzip() == 0);
  CHECK(rdm_decode_gzip() == 0);
  run_rdmgr_request();
  return 0;
}
