// SPDX-License-Identifier: MIT
/* The service's catalog: search, delivery and import. */
#include <libcs/cs.h>

#include "dba/dba.h"
#include "server.h"
#include "service/csid.h"
#include "service/rdm.h"

#define RESPONSE "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\n}\n\n\n"
#define FIRST "@DOCUMENT { http://localhost/1\ntitle{5}:\tFirst\n}\n"
#define SECOND "@DOCUMENT { http://localhost/2\ntitle{6}:\tSecond\n}\n"

static void put(DB *db, char *number, char *description) {
  DBT key = {number, 8}, value = {description, strlen(description)};
  CHECK(dba_put(db, &key, &value) == 0);
}

/* make_catalog makes a catalog "c" of two descriptions, changed at the times 1000 and 2000. */
static void make_catalog(void) {
  static const unsigned char index[8 + 2 * 20] = {
      0x3E, 0xB1, 0xCA, 0x0E, 0, 0, 0, 2,                                     /* the mark and the count */
      0,    0,    0x03, 0xE8, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, /* time, reserved, key, reserved */
      0,    0,    0x07, 0xD0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0,
  };
  char one[] = "00000001", two[] = "00000002", first[] = FIRST, second[] = SECOND;
  DB *db = dba_open("records.db", "w+");
  FILE *file = fopen("records.db.idx", "wb");
  CHECK(db != NULL && file != NULL);
  put(db, one, first);
  put(db, two, second);
  CHECK(dba_close(db) == 0);
  CHECK(fwrite(index, 1, sizeof index, file) == sizeof index);
  CHECK(fclose(file) == 0);
  write_file("csid.conf", "csid=\"c\" catalog-database=\"./records.db\"\n");
  CHECK(csid_init("csid.conf", "c") == 0);
}

static void search(void) {
  cs_dbindex index;
  CHECK(cs_dbsearch_start("unknown", &index) == 1);
  host_free(index.entries);
  CHECK(cs_dbsearch_start("c", &index) == 0);
  CHECK(index.count == 2);
  CHECK(index.entries[1].time == 2000 && index.entries[1].key == 2);
  CHECK(cs_dbsearch(&index, 500) == 0);
  CHECK(cs_dbsearch(&index, 3000) == 2);
  host_free(index.entries);
}

static void send(void) {
  cs_dbindex index;
  int32_t count = 1;
  uint32_t bytes = 0;
  exchange x;
  begin(&x, "POST", "/rdm/incoming", "");
  CHECK(cs_dbsearch_start("c", &index) == 0);
  CHECK(send_since("c", &index, 0, NULL, &count, &bytes, &x.session, &x.request) == 0);
  CHECK(count == 1 && bytes == strlen(RESPONSE FIRST));
  CHECK_SENT(RESPONSE FIRST);
  cs_dbsearch_log(count, bytes, 0, &x.session, &x.request);
  CHECK(strstr(host_param_find("rdm-log-message", x.request.vars), "\"1 RDs Transfered\" - ") != NULL);
  host_free(index.entries);
  end(&x);
}

static void print(void) {
  csio *io = csio_create(&io);
  cslist *keys = NULL;
  CHECK(cslist_create(&keys) == 0);
  CHECK(cslist_append(keys, "00000002") == 0);
  CHECK(cslist_append(keys, "00000003") == 0);
  CHECK(rds_send_rd("c", keys, NULL, io) == 1);
  CHECK_TEXT((char *)io->data, SECOND);
  CHECK(cslist_do_free(keys, 1) == 0);
  csio_destroy(io);
}

/* handle calls a handler with a body. Returns its result; the output that it left to send is in `sent`. */
static int32_t handle(rdm_handler handler, int32_t type, const char *body) {
  csio *input = csio_create(&input), *output = csio_create(&output);
  rdmhdr *header = NULL;
  int32_t result;
  exchange x;
  begin(&x, "POST", "/rdm/incoming", "");
  rdmhdr_create(&header);
  rdmhdr_reset(header);
  header->type = type;
  header->csid = host_strdup("c");
  header->query_language = host_strdup("gatherer");
  CHECK(csio_append(input, body, (int32_t)strlen(body)) == (int32_t)strlen(body));
  result = handler(header, input, output, &x.session, &x.request);
  if (output->length != 0) strcpy(sent, (char *)output->data);
  rdmhdr_destroy(header);
  csio_destroy(output);
  csio_destroy(input);
  end(&x);
  return result;
}

static void answer_a_query(void) {
  CHECK(handle(rds_rd_request, RDM_RD_REQUEST, "@RDMQUERY { -\nscope{3}:\tall\n}\n") == 1);
  CHECK_SENT(RESPONSE FIRST SECOND);
}

/* A script that prints 3 replaces minidba. */
static void import(void) {
  write_file("minidba", "#!/bin/sh\necho \"$@\" >> calls\ncase \"$3\" in update) cat > body; echo 3 ;; esac\n");
  write_file("calls", "");
  CHECK(cs_cli_run("chmod 755 minidba", NULL) == 0);
  CHECK(handle(rds_rd_response, RDM_RD_RESPONSE, FIRST) == 0);
  CHECK_SENT(
      "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n"
      "\n\nAccepted 3 RDs from Unknown-Source\n\n");
  CHECK_TEXT(read_file("body"), FIRST);
  CHECK_TEXT(read_file("calls"),
             "-d ./records.db update\n-d ./records.db expire\n-d ./records.db -i ./records.db.idx index\n"
             "-d ./records.db -i ./records.db.idx unclassified\n");
}

int main(void) {
  bind_server();
  make_catalog();
  search();
  send();
  print();
  answer_a_query();
  import();
  csid_terminate();
  return 0;
}
