/*
 * SOIF objects, their parser and printer.
 */
#ifndef LIBCS_SOIF_H
#define LIBCS_SOIF_H

#include <stdio.h>

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

typedef struct AVPair {
  char *attribute;
  char *value;
  int32_t vsize;
} AVPair;
typedef struct SOIF {
  char *template_name;
  char *url;
  cshashtable *attrs;
  int32_t attr_count;
  int32_t value_bytes;
} SOIF;
typedef struct SOIFBuffer {
  char *data;
  int32_t length;
  int32_t reserved;
  int32_t size;
  int32_t initial_size;
} SOIFBuffer;
typedef int (*soif_output_fn)(void *argument, const void *bytes, int32_t length);
typedef struct soif_stream {
  int16_t in_use;
  soif_output_fn output;
  void *output_argument;
  FILE *input_file;
  const char *input_string;
  int32_t input_length;
  int32_t input_position;
  char **accept;
} soif_stream;
extern soif_stream _soif_state[256];
int avpair_create(const char *name, const char *value, int32_t vsize, AVPair **out) QX_NOEXCEPT;
void *avpair_copy(const void *pair) QX_NOEXCEPT;
void *avpair_copy_useval(const void *pair) QX_NOEXCEPT;
int avpair_compare(const void *pair, const void *name) QX_NOEXCEPT;
int avpair_free(AVPair *pair) QX_NOEXCEPT;
uint32_t avpair_hash(const AVPair *pair) QX_NOEXCEPT;
int soif_create(const char *template_name, const char *url, int32_t nbuckets, SOIF **out) QX_NOEXCEPT;
int soif_free(SOIF *s) QX_NOEXCEPT;
int soif_compare(const SOIF *s, const char *url) QX_NOEXCEPT;
AVPair *soif_find(const SOIF *s, const char *name) QX_NOEXCEPT;
char *soif_findval(const SOIF *s, const char *name) QX_NOEXCEPT;
int soif_insert(SOIF *s, const char *name, const char *value, int32_t vsize) QX_NOEXCEPT;
int soif_insert_nocopy(SOIF *s, const char *name, char *value, int32_t vsize) QX_NOEXCEPT;
int soif_delete(SOIF *s, const char *name) QX_NOEXCEPT;
int soif_multivalue_attrcmp(const char *base, const char *attribute) QX_NOEXCEPT;
char *soif_buffer_create(int32_t initial_size, SOIFBuffer **out) QX_NOEXCEPT;
char *soif_buffer_increase(SOIFBuffer *b, int32_t n) QX_NOEXCEPT;
int soif_buffer_append(void *buffer, const void *bytes, int32_t n) QX_NOEXCEPT;
void soif_buffer_destroy(SOIFBuffer *b) QX_NOEXCEPT;
int soif_parse_init_file(FILE *file) QX_NOEXCEPT;
int soif_parse_init_string(const char *bytes, int32_t length) QX_NOEXCEPT;
int soif_parse_set_accept_attr(int stream, char **accept) QX_NOEXCEPT;
int soif_parse(int stream, SOIF **out) QX_NOEXCEPT;
int soif_parse_is_eoi(int stream) QX_NOEXCEPT;
int soif_parse_finish(int stream) QX_NOEXCEPT;
int soif_print_init_fn(soif_output_fn fn, void *argument) QX_NOEXCEPT;
int soif_print_init_file(FILE *file) QX_NOEXCEPT;
int soif_print_init_string(SOIFBuffer **out) QX_NOEXCEPT;
int soif_print(int stream, const SOIF *s) QX_NOEXCEPT;
int soif_print_header(int stream, const SOIF *s) QX_NOEXCEPT;
int soif_print_body(int stream, const SOIF *s) QX_NOEXCEPT;
int soif_print_trailer(int stream) QX_NOEXCEPT;
int soif_print_finish(int stream) QX_NOEXCEPT;

QX_END

#endif
