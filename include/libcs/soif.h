// SPDX-License-Identifier: MIT
/*
 * SOIF objects, their parser and printer.
 *
 * A SOIF object is a template name, a URL and a set of attributes whose values are counted strings of any bytes. RDM
 * headers and bodies, resource descriptions, schemas and taxonomies are SOIF. The manual page soif(5) describes the
 * text form.
 *
 * Memory comes from the host's allocator. Procedures return 0 for success and 1 for failure unless they say otherwise;
 * lookups return null if nothing is found. Out-pointers are always written, with null on failure. Null pointers are not
 * accepted unless a procedure says so.
 *
 * Only one thread at a time may use an object, a buffer or a stream. The process has one table of streams, which is not
 * locked: only one thread at a time may open or finish streams.
 */
#ifndef LIBCS_SOIF_H
#define LIBCS_SOIF_H

#include <stdio.h>

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/// AVPair is one attribute. It owns its name and its value: `vsize` bytes and a NUL that is not counted, so a value
/// without NULs can be used as text. A value of size 0 may be null instead. The parser stores names in lower case.
typedef struct AVPair {
  char *attribute;
  char *value;
  int32_t vsize;
} AVPair;

/// SOIF is one object. It owns its texts, its table and every AVPair in the table. Names are compared in any letter
/// case but hashed as spelled: look an attribute up as it was stored, in practice in lower case. Several attributes may
/// have the same name; lookups find the one stored first.
typedef struct SOIF {
  char *template_name;
  char *url;
  cshashtable *attrs;
  int32_t attr_count;  /* insertions attempted so far; not lowered by deletions */
  int32_t value_bytes; /* the sum of their value sizes; not lowered either */
} SOIF;

/// SOIFBuffer is a growing text. After the first append, `data` ends with a NUL.
typedef struct SOIFBuffer {
  char *data;
  int32_t length;       /* bytes in use, without the NUL */
  int32_t reserved;     /* 0 */
  int32_t size;         /* bytes of `data`: above `length`, or equal to it if `initial_size` is 0 */
  int32_t initial_size; /* as given at creation */
} SOIFBuffer;

/// soif_output_fn consumes exactly `length` bytes; its result is ignored.
typedef int (*soif_output_fn)(void *argument, const void *bytes, int32_t length);

/// soif_stream is a slot of the stream table: a parse stream has a file or a string, a print stream an output function.
/// A slot owns none of its pointers. All fields of a free slot are 0.
typedef struct soif_stream {
  int16_t in_use; /* 1 while a stream uses the slot */
  soif_output_fn output;
  void *output_argument;
  FILE *input_file; /* null if the input is a string */
  const char *input_string;
  int32_t input_length;
  int32_t input_position; /* index of the next byte of the string */
  char **accept;          /* null-terminated array of attributes to keep; null: all */
} soif_stream;

/// _soif_state is the table of streams; a stream is an index into this table.
extern soif_stream _soif_state[256];

/* ---- Attributes ---- */

/// avpair_create stores a new pair with copies of `name` and of the `vsize` bytes at `value`, which may be null if
/// `vsize` is 0. Returns 0, or 1 for a null name, a negative size, or if allocation fails.
int avpair_create(const char *name, const char *value, int32_t vsize, AVPair **out) QX_NOEXCEPT;

/// avpair_copy returns a new pair with copies of name and value, or null if allocation fails.
void *avpair_copy(const void *pair) QX_NOEXCEPT;

/// avpair_copy_useval returns a new pair with a copy of the name; it takes over the value of `pair` itself. A null
/// value of size 0 stays null. Returns null, and leaves the value to `pair`, for a null name, for a null value with a
/// size above 0, or if allocation fails.
void *avpair_copy_useval(const void *pair) QX_NOEXCEPT;

/// avpair_compare returns 0 if the pair's name is `name` in any letter case; otherwise a value below or above 0, in the
/// order of the lower-case names.
int avpair_compare(const void *pair, const void *name) QX_NOEXCEPT;

/// avpair_free releases the pair with its name and its value, a block of host_alloc. Returns 0, or 1 for a null pair.
int avpair_free(AVPair *pair) QX_NOEXCEPT;

/// avpair_hash returns cshashtable_hf_default of the pair's name.
uint32_t avpair_hash(const AVPair *pair) QX_NOEXCEPT;

/* ---- Objects ---- */

/// soif_create stores a new object without attributes. A null or empty template name becomes "OBJECT", a null or empty
/// URL "-"; both are copied. A bucket count below 1 becomes 23. An object with one bucket prints its attributes in the
/// order of insertion. Returns 0, or 1 if allocation fails.
int soif_create(const char *template_name, const char *url, int32_t nbuckets, SOIF **out) QX_NOEXCEPT;

/// soif_free releases the object with everything that it owns; null is ignored. Always returns 0.
int soif_free(SOIF *s) QX_NOEXCEPT;

/// soif_compare compares the object's URL with `url` like strcmp(), case-sensitively.
int soif_compare(const SOIF *s, const char *url) QX_NOEXCEPT;

/// soif_find returns the attribute `name`, borrowed from the object, or null.
AVPair *soif_find(const SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_findval returns the value of the attribute `name`, borrowed from the object, or null.
char *soif_findval(const SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_insert adds an attribute with copies of `name` and of the `vsize` bytes at `value`, made by the table's copy
/// function. It is hashed under `name` even if the copy has another name. Returns 0, or 1 as avpair_create; the
/// object's counters are raised in both cases.
int soif_insert(SOIF *s, const char *name, const char *value, int32_t vsize) QX_NOEXCEPT;

/// soif_insert_nocopy adds an attribute with a copy of `name` that owns `value` itself: a block of host_alloc with
/// `vsize` bytes and a NUL, or null if `vsize` is 0. Returns 0; or 1, and the value still belongs to the caller, for a
/// null name, for a null value with a size above 0, or if allocation fails. The object's counters are raised in both
/// cases.
int soif_insert_nocopy(SOIF *s, const char *name, char *value, int32_t vsize) QX_NOEXCEPT;

/// soif_delete removes and releases the first attribute `name`; the object's counters do not change. Returns 0, or 1 if
/// there is no such attribute.
int soif_delete(SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_multivalue_attrcmp returns 1 if `attribute` is a numbered instance of `base`, that is `base` in any letter
/// case, a hyphen and decimal digits ("author-12" of "author"), else 0. `base` itself is not an instance.
int soif_multivalue_attrcmp(const char *base, const char *attribute) QX_NOEXCEPT;

/* ---- Buffers ---- */

/// soif_buffer_create stores a new empty buffer of `initial_size` bytes (a negative size counts as 0). Returns its
/// data, uninitialised, or null if allocation fails.
char *soif_buffer_create(int32_t initial_size, SOIFBuffer **out) QX_NOEXCEPT;

/// soif_buffer_increase enlarges the buffer by `n` bytes. Returns the data, which may have moved; or null, with the
/// buffer unchanged, for a negative `n`, a size above 2^31 - 1, or if allocation fails.
char *soif_buffer_increase(SOIFBuffer *b, int32_t n) QX_NOEXCEPT;

/// soif_buffer_append appends `n` bytes and a NUL to a SOIFBuffer; it does nothing if `n` is 0 or less. If they do not
/// fit, the buffer grows by exactly `n`. Returns 0, or 1 if soif_buffer_increase fails. It has the type of an output
/// function.
int soif_buffer_append(void *buffer, const void *bytes, int32_t n) QX_NOEXCEPT;

/// soif_buffer_destroy releases the buffer and its data; null is ignored.
void soif_buffer_destroy(SOIFBuffer *b) QX_NOEXCEPT;

/* ---- Parsing. A stream outside the table has no input. Opening a stream when no slot is free is fatal. ---- */

/// soif_parse_init_file opens a stream that reads `file`. Finish the stream before you close the file. Returns the
/// stream.
int soif_parse_init_file(FILE *file) QX_NOEXCEPT;

/// soif_parse_init_string opens a stream that reads `length` bytes (0 for null). They need no NUL and must stay valid
/// until the stream is finished. Returns the stream.
int soif_parse_init_string(const char *bytes, int32_t length) QX_NOEXCEPT;

/// soif_parse_set_accept_attr limits the attributes that the stream keeps: `accept` is a null-terminated array of
/// lower-case names, each of which also stands for its numbered instances. A null array keeps all attributes, an empty
/// one none. The array is not copied. Ignored if the stream is not open. Always returns 0.
int soif_parse_set_accept_attr(int stream, char **accept) QX_NOEXCEPT;

/// soif_parse reads the next object, which the caller releases with soif_free. Returns 0; or 1 if the input ends before
/// an "@", after a syntax error, or if allocation fails. A damaged object is dropped; the next call continues at the
/// next "@". Template name, URL, attribute name and size must each be shorter than 4096 characters, a value at most 256
/// MiB. The end of input completes an open object. If it cuts a value, a file fails, unless the accept list drops the
/// value. In a string the missing bytes are read as 0xFF, at most 65,536 of them; a larger size fails, even if the
/// accept list drops the value.
int soif_parse(int stream, SOIF **out) QX_NOEXCEPT;

/// soif_parse_is_eoi returns non-zero at the end of input: after a read has met the end of a file, or at the end of a
/// string. White space may follow an object, so the end may be found only by a soif_parse that returns 1.
int soif_parse_is_eoi(int stream) QX_NOEXCEPT;

/// soif_parse_finish closes the stream. Always returns 0.
int soif_parse_finish(int stream) QX_NOEXCEPT;

/* ---- Printing. A stream outside the table, or without an output function, drops its output. ---- */

/// soif_print_init_fn opens a stream that passes its output to `fn` with `argument`. Returns the stream.
int soif_print_init_fn(soif_output_fn fn, void *argument) QX_NOEXCEPT;

/// soif_print_init_file opens a stream that writes to `file`. Finish the stream before you close the file. Returns the
/// stream.
int soif_print_init_file(FILE *file) QX_NOEXCEPT;

/// soif_print_init_string opens a stream that appends to a new buffer, stored in `*out`. If allocation fails, `*out` is
/// null and the output is dropped. The caller destroys the buffer after finishing the stream. Returns the stream.
int soif_print_init_string(SOIFBuffer **out) QX_NOEXCEPT;

/// soif_print writes header, body and trailer. Like all print procedures it always returns 0: output errors are not
/// reported.
int soif_print(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_header writes the line with template name and URL in one call of the output function.
int soif_print_header(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_body writes the attributes in the order of the table: by bucket, then by insertion. Attributes of size 0
/// are omitted. It calls the output function three times for each attribute: label, value, newline.
int soif_print_body(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_trailer writes the closing brace and a newline in one call of the output function.
int soif_print_trailer(int stream) QX_NOEXCEPT;

/// soif_print_finish closes the stream.
int soif_print_finish(int stream) QX_NOEXCEPT;

QX_END

#endif
