// SPDX-License-Identifier: MIT
/* The schema translator. */
#include "files.h"
#include "service/schema.h"

static const char text[] =
    "@SCHEMA { -\nschema-name{7}:\tLibrary\n"
    "soif-attribute-1{2}:\tid\nsystem-table-name-1{4}:\tdocs\nsystem-column-name-1{2}:\tid\nis-internal-1{1}:\t1\n"
    "soif-attribute-2{5}:\ttitle\nsystem-table-name-2{4}:\tdocs\nsystem-column-name-2{5}:\ttitle\n"
    "soif-attribute-3{6}:\tauthor\nsystem-table-name-3{7}:\tauthors\nsystem-column-name-3{4}:\tname\n"
    "data-type-3{4}:\tdate\n}\n";

static void translate(void) {
  char out[SCHEMA_TEXT_SIZE], *list = NULL;
  CHECK(schema_translate_soifattribute("Title", out) == out);
  CHECK_TEXT(out, "docs.title");
  CHECK(schema_translate_soifattribute("none", out) == NULL);
  CHECK_TEXT(out, "");
  CHECK(schema_translate_tblcol("authors.name", out) == out);
  CHECK_TEXT(out, "author");
  CHECK(schema_translate_col("title", out) == out);
  CHECK_TEXT(out, "title");
  CHECK(schema_translate_soifattr2datatype("author") == SCHEMA_DATE);
  CHECK(schema_translate_soifattr2datatype("title") == SCHEMA_STRING);
  CHECK(schema_translate_soif2rdbms("title,author", &list) == list);
  CHECK_TEXT(list, "docs.title,authors.name");
  host_free(list);
}

static void list_all(void) {
  char **names = NULL;
  int32_t count = 0;
  schema_soifattrs(&names, &count);
  CHECK(count == 2);
  CHECK_TEXT(names[0], "title");
  CHECK_TEXT(names[1], "author");
  host_free(names);
  schema_tblcols(&names, &count);
  CHECK(count == 2);
  CHECK_TEXT(names[1], "authors.name");
  host_free(names);
  CHECK(schema_systables("authors.name", &names) == 1);
  CHECK_TEXT(names[0], "authors");
  host_free(names);
  CHECK_TEXT(schema_translate_alljoin(NULL), " AND docs.id = authors.docid ");
}

int main(void) {
  write_file("schema.rdm", text);
  CHECK(schema_translate_init("missing.rdm") == -1);
  CHECK_TEXT(schema_name(), "");
  CHECK(schema_translate_init("schema.rdm") == 0);
  CHECK_TEXT(schema_name(), "Library");
  translate();
  list_all();
  schema_translate_terminate();
  CHECK_TEXT(schema_name(), "Library");
  return 0;
}
