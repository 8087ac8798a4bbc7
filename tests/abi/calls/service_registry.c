// SPDX-License-Identifier: MIT
/* The registry of catalog services and their aliases. */
#include "files.h"
#include "service/alias.h"
#include "service/csid.h"

static void fill_the_registry(void) {
  write_file("aliases", "# protocols\nip ipv4 std5\n");
  write_file("csid.conf", "csid=\"a\" title=\"A\"\nalias-file=\"aliases\"\ncsid=\"b\"\n");
  CHECK(csid_init("csid.conf", "a") == 0);
  CHECK_TEXT(csid_default(NULL), "a");
  CHECK_TEXT(csid_default("b"), "b");
  CHECK_TEXT(host_param_find("title", csid_find("a")), "A");
  CHECK(csid_find("c") == NULL);
  CHECK_TEXT(csid_findval("alias-file", "a"), "aliases");
  CHECK_TEXT(alias_to_parent(csid_finda2p("a"), "std5"), "ip");
  CHECK_TEXT(parent_to_aliases(csid_findp2a("a"), "ip"), "ipv4");
  CHECK(csid_finda2p("b") == NULL && csid_findp2a("b") == NULL);
  csid_terminate();
  CHECK(csid_find("a") == NULL && csid_default(NULL) == NULL);
}

static void read_aliases(void) {
  char line[] = "tcp rfc793\trfc9293", again[] = "udp rfc793";
  pblock *a2p = NULL, *p2a = NULL;
  CHECK(alias_init(&a2p, &p2a, "missing") == -1);
  CHECK(alias_init(&a2p, &p2a, "aliases") == 0);
  CHECK(alias_parse(a2p, p2a, line) == 0);
  CHECK(alias_parse(a2p, p2a, again) == -1);
  CHECK_TEXT(alias_to_parent(a2p, "rfc9293"), "tcp");
  CHECK(alias_to_parent(a2p, "sctp") == NULL);
  CHECK_TEXT(parent_to_aliases(p2a, "tcp"), "rfc793");
  CHECK_TEXT(parent_to_aliases(p2a, "rfc793"), "rfc9293");
  CHECK(parent_to_aliases(p2a, "rfc9293") == NULL);
  CHECK(alias_iterate(p2a, "tcp") == NULL);
  CHECK(alias_copy(a2p, "sctp", "sctp", 1) == 0);
  CHECK(alias_copy(a2p, "sctp", "tcp", 1) == -1);
  CHECK_TEXT(alias_to_parent(a2p, "sctp"), "sctp");
  alias_destroy(a2p, p2a);
}

int main(void) {
  fill_the_registry();
  read_aliases();
  return 0;
}
