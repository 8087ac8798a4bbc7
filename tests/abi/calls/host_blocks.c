// SPDX-License-Identifier: MIT
/* Memory and parameter blocks of the host. */
#include <qxapi/qxapi.h>

#include "check.h"

static void use_memory(void) {
  char *bytes = host_alloc(4), *copy;
  CHECK(bytes != NULL);
  memcpy(bytes, "abc", 4);
  bytes = host_realloc(bytes, 10000);
  CHECK_TEXT(bytes, "abc");
  copy = host_strdup(bytes);
  CHECK(copy != bytes);
  CHECK_TEXT(copy, "abc");
  host_free(copy);
  host_free(bytes);
  host_free(NULL);
}

static void use_a_block(void) {
  pblock *block = host_param_create(3);
  host_param *pair;
  CHECK(block != NULL);
  CHECK(host_param_add("name", "first", block) == 0);
  CHECK(host_param_add("name", "second", block) == 0);
  CHECK(host_param_parse("path=/a quoted=\"a \\\"b\\\"\"", block) == 2);
  CHECK_TEXT(host_param_find("name", block), "first");
  CHECK_TEXT(host_param_find("path", block), "/a");
  CHECK_TEXT(host_param_find("quoted", block), "a \"b\"");
  CHECK(host_param_find("Name", block) == NULL);

  pair = host_param_find_entry("name", block, 1);
  CHECK(pair != NULL);
  CHECK_TEXT(pair->name, "name");
  CHECK_TEXT(pair->value, "first");
  host_param_free_entry(pair);
  CHECK_TEXT(host_param_find("name", block), "second");
  host_param_free(block);
}

int main(void) {
  use_memory();
  use_a_block();
  return 0;
}
