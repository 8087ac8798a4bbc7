// SPDX-License-Identifier: MIT
/* Parsing SOIF text and printing it again. */
#include <libcs/soif.h>

#include "files.h"

static const char text[] = "@DOCUMENT { http://example.org/\ntitle{5}:\tTitle\nauthor-1{6}:\tAuthor\n}\n";
static const char header[] = "@DOCUMENT { http://example.org/\n";
static const char author[] = "author-1{6}:\tAuthor\n";

static SOIF *parse(int stream) {
  SOIF *object = NULL;
  CHECK(stream >= 0 && _soif_state[stream].in_use == 1);
  CHECK(soif_parse(stream, &object) == 0);
  return object;
}

static void parse_a_string(void) {
  char author_name[] = "author";
  char *accept[] = {author_name, NULL};
  SOIF *none = NULL;
  int stream = soif_parse_init_string(text, (int32_t)strlen(text));
  SOIF *object;
  CHECK(soif_parse_set_accept_attr(stream, accept) == 0);
  object = parse(stream);
  CHECK(soif_findval(object, "title") == NULL);
  CHECK_TEXT(soif_findval(object, "author-1"), "Author");
  soif_free(object);
  CHECK(soif_parse(stream, &none) == 1 && none == NULL);
  CHECK(soif_parse_is_eoi(stream) != 0);
  CHECK(soif_parse_finish(stream) == 0);
  CHECK(_soif_state[stream].in_use == 0);
}

static SOIF *parse_a_file(void) {
  FILE *file;
  SOIF *object;
  int stream;
  write_file("object.soif", text);
  file = fopen("object.soif", "r");
  CHECK(file != NULL);
  stream = soif_parse_init_file(file);
  object = parse(stream);
  CHECK(soif_parse_is_eoi(stream) == 0); /* a newline may follow */
  CHECK(soif_parse_finish(stream) == 0);
  CHECK(fclose(file) == 0);
  return object;
}

static void print_to_a_string(const SOIF *object) {
  SOIFBuffer *buffer = NULL;
  int stream = soif_print_init_string(&buffer);
  CHECK(soif_print_header(stream, object) == 0);
  CHECK_TEXT(buffer->data, header);
  CHECK(soif_print_body(stream, object) == 0);
  CHECK(strstr(buffer->data, author) != NULL);
  CHECK(soif_print_trailer(stream) == 0);
  CHECK(buffer->length == (int32_t)strlen(text));
  CHECK(strcmp(buffer->data + buffer->length - 2, "}\n") == 0);
  CHECK(soif_print_finish(stream) == 0);
  soif_buffer_destroy(buffer);
}

static void print_to_a_file(const SOIF *object) {
  FILE *file = fopen("printed.soif", "w");
  int stream;
  CHECK(file != NULL);
  stream = soif_print_init_file(file);
  CHECK(soif_print(stream, object) == 0);
  CHECK(soif_print_finish(stream) == 0);
  CHECK(fclose(file) == 0);
  CHECK(strlen(read_file("printed.soif")) == strlen(text));
  CHECK(strstr(read_file("printed.soif"), author) != NULL);
}

static int calls = 0;

static int count_calls(void *argument, const void *bytes, int32_t length) {
  CHECK(argument == &calls);
  CHECK(calls > 0 || (length == (int32_t)strlen(header) && memcmp(bytes, header, strlen(header)) == 0));
  ++calls;
  return 0;
}

static void print_to_a_function(const SOIF *object) {
  int stream = soif_print_init_fn(count_calls, &calls);
  CHECK(_soif_state[stream].output == count_calls);
  CHECK(soif_print(stream, object) == 0);
  CHECK(soif_print_finish(stream) == 0);
  CHECK(calls == 1 + 2 * 3 + 1);
}

int main(void) {
  SOIF *object;
  parse_a_string();
  object = parse_a_file();
  print_to_a_string(object);
  print_to_a_file(object);
  print_to_a_function(object);
  soif_free(object);
  return 0;
}
