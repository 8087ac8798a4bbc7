// SPDX-License-Identifier: MIT
/* Parameter blocks made from forms, printed and turned into requests; digests and the names of catalog services. */
#include <libcs/cs.h>

#include "check.h"

static void decode_a_form(void) {
  char form[] = "a=b+c&d=%41&a=e", text[] = "a+b+";
  pblock *block = host_param_create(3);
  CHECK(plus2space(text) == text + 4);
  CHECK_TEXT(text, "a b ");
  CHECK(pblock_form2pblock(form, (int32_t)strlen(form), block) == 0);
  CHECK_TEXT(host_param_find("a", block), "b c,e");
  CHECK_TEXT(host_param_find("d", block), "A");
  pblock_remove_n_free("a", block);
  CHECK(host_param_find("a", block) == NULL);
  host_param_free(block);
}

static void put_pairs_on_lines(void) {
  char text[] = "a=\"1\" b=\"2\" ";
  CHECK(pblock_pblock2str_add_nl(text) == text);
  CHECK_TEXT(text, "a=\"1\"\nb=\"2\"\n");
}

static void make_a_request(void) {
  csio *header = csio_create(&header), *query = csio_create(&query);
  pblock *block = host_param_create(3);
  CHECK(pblock_pblock2rdm(block, header, query) != NULL); /* there is no type */
  CHECK(header->length == 0);
  CHECK(host_param_parse("type=rd-request ql=gatherer scope=all", block) == 3);
  CHECK(pblock_pblock2rdm(block, header, query) == NULL);
  CHECK(strstr((char *)header->data, "rdm-type{10}:\trd-request\n") != NULL);
  CHECK(strstr((char *)query->data, "scope{3}:\tall\n") != NULL);
  host_param_free(block);
  csio_destroy(query);
  csio_destroy(header);
}

static void digest(void) {
  static const unsigned char of_abc[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                           0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
  unsigned char bytes[16];
  char text[33];
  CHECK(cs_mem2md5("abc", 3, bytes) == bytes);
  CHECK(memcmp(bytes, of_abc, sizeof bytes) == 0);
  CHECK(cs_mem2md5str("abc", 3, text) == 2);
  CHECK_TEXT(text, "900150983cd24fb0d6963f7d28e17f72");
}

static void take_a_name_apart(void) {
  char name[64], host[64];
  int port = -1;
  CHECK(csid_parse("x-catalog://localhost:8380/rfc", name, host, &port) == 0);
  CHECK_TEXT(name, "rfc");
  CHECK_TEXT(host, "localhost");
  CHECK(port == 8380);
  CHECK(csid_parse("http://localhost/", name, host, &port) == 1);
  CHECK_TEXT(name, "");
}

int main(void) {
  decode_a_form();
  put_pairs_on_lines();
  make_a_request();
  digest();
  take_a_name_apart();
  return 0;
}
