// SPDX-License-Identifier: MIT
/* A program that links the support library alone: what it uses is a list, a buffer, the log and a SOIF object. */
#include <string.h>

#include <libcs/adt.h>
#include <libcs/cs.h>
#include <libcs/log.h>
#include <libcs/soif.h>

#include "check.h"

static int items_seen = 0;

static void see_item(void *data) {
  CHECK(strcmp((char *)data, items_seen == 0 ? "one" : "two") == 0);
  ++items_seen;
}

static void use_a_list(void) {
  cslist *list = NULL;
  CHECK(cslist_create(&list) == 0);
  CHECK(cslist_append(list, "one") == 0);
  CHECK(cslist_append(list, "two") == 0);
  cslist_apply(list, see_item);
  CHECK(items_seen == 2);
  CHECK(strcmp((char *)cslist_find(list, "two"), "two") == 0);
  CHECK(cslist_do_free(list, 1) == 0);
}

static void use_a_buffer(void) {
  char bytes[16] = "";
  csio *io = NULL;
  CHECK(csio_create(&io) == io && io != NULL);
  io->max_memory = 4;
  CHECK(csio_append(io, "in a file", 9) == 9);
  CHECK(io->flags == CSIO_FILE);
  CHECK(csio_finish(io) == 0);
  csio_rewind(io);
  CHECK(csio_copy(io, bytes, sizeof bytes) == 9);
  CHECK(strcmp(bytes, "in a file") == 0);
  csio_destroy(io);
}

static void use_a_soif_object(void) {
  static const char expected[] = "@DOCUMENT { http://example.org/\ntitle{5}:\tTitle\n}\n";
  SOIF *object = NULL, *again = NULL;
  csio *io = NULL;
  int stream;
  CHECK(soif_create("DOCUMENT", "http://example.org/", 0, &object) == 0);
  CHECK(soif_insert(object, "title", "Title", 5) == 0);
  CHECK(csio_create(&io) != NULL);
  stream = soif_print_init_fn(csio_append, io);
  soif_print(stream, object);
  soif_print_finish(stream);
  CHECK(strcmp((char *)io->data, expected) == 0);
  stream = soif_parse_init_string((const char *)io->data, (int32_t)io->length);
  CHECK(soif_parse(stream, &again) == 0);
  soif_parse_finish(stream);
  CHECK(strcmp(soif_findval(again, "title"), "Title") == 0);
  soif_free(again);
  soif_free(object);
  csio_destroy(io);
}

static void use_the_log(void) {
  char *line = cslog_linestr("a\tb");
  cslog_init(1, "stdout");
  CSLOG(CSLOG_NOTE, "program", "%s\n", line);
  CSLOG(CSLOG_WARNING, "program", "without arguments\n");
  cslog_terminate();
  host_free(line);
}

static void use_the_rest(void) {
  char digest[33];
  char form[] = "a=b+c";
  pblock *block = host_param_create(1);
  cs_mem2md5str("abc", 3, digest);
  CHECK(strcmp(digest, "900150983cd24fb0d6963f7d28e17f72") == 0);
  CHECK(pblock_form2pblock(form, 5, block) == 0);
  CHECK(strcmp(host_param_find("a", block), "b c") == 0);
  host_param_free(block);
}

int main(void) {
  use_a_list();
  use_a_buffer();
  use_a_soif_object();
  use_the_log();
  use_the_rest();
  return 0;
}
