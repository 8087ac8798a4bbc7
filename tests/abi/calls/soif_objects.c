// SPDX-License-Identifier: MIT
/* Attributes and objects of SOIF, and the buffer they are printed to. */
#include <libcs/soif.h>

#include "check.h"

static void make_attributes(void) {
  AVPair *pair = NULL, *copy, *taker;
  CHECK(avpair_create("title", "Title", 5, &pair) == 0);
  CHECK_TEXT(pair->attribute, "title");
  CHECK_TEXT(pair->value, "Title");
  CHECK(pair->vsize == 5);
  CHECK(avpair_compare(pair, "TITLE") == 0);
  CHECK(avpair_compare(pair, "author") > 0);
  CHECK(avpair_hash(pair) == cshashtable_hf_default("title"));

  copy = avpair_copy(pair);
  CHECK(copy != NULL && copy->value != pair->value);
  CHECK_TEXT(copy->value, "Title");
  CHECK(avpair_free(copy) == 0);

  taker = avpair_copy_useval(pair);
  CHECK(taker != NULL && taker->value == pair->value);
  pair->value = NULL; /* the other pair owns it now */
  CHECK(avpair_free(pair) == 0);
  CHECK(avpair_free(taker) == 0);
  CHECK(avpair_free(NULL) == 1);
}

static void make_an_object(void) {
  SOIF *object = NULL;
  CHECK(soif_create("DOCUMENT", "http://example.org/", 0, &object) == 0);
  CHECK_TEXT(object->template_name, "DOCUMENT");
  CHECK(soif_compare(object, "http://example.org/") == 0);
  CHECK(soif_compare(object, "http://example.net/") > 0);
  CHECK(soif_insert(object, "title", "Title", 5) == 0);
  CHECK(soif_insert_nocopy(object, "author", host_strdup("Author"), 6) == 0);
  CHECK(soif_find(object, "author")->vsize == 6);
  CHECK_TEXT(soif_findval(object, "author"), "Author");
  CHECK(object->attr_count == 2 && object->value_bytes == 11);
  CHECK(soif_delete(object, "title") == 0);
  CHECK(soif_delete(object, "title") == 1);
  CHECK(soif_findval(object, "title") == NULL);
  CHECK(soif_free(object) == 0);
}

static void number_instances(void) {
  CHECK(soif_multivalue_attrcmp("author", "AUTHOR-12") == 1);
  CHECK(soif_multivalue_attrcmp("author", "author") == 0);
}

static void grow_a_buffer(void) {
  SOIFBuffer *buffer = NULL;
  char *data = soif_buffer_create(4, &buffer);
  CHECK(data != NULL && buffer->data == data && buffer->size == 4);
  CHECK(soif_buffer_increase(buffer, 100) == buffer->data);
  CHECK(buffer->size >= 104);
  CHECK(soif_buffer_append(buffer, "one ", 4) == 0);
  CHECK(soif_buffer_append(buffer, "two", 3) == 0);
  CHECK_TEXT(buffer->data, "one two");
  CHECK(buffer->length == 7);
  soif_buffer_destroy(buffer);
}

int main(void) {
  make_attributes();
  make_an_object();
  number_instances();
  grow_a_buffer();
  return 0;
}
