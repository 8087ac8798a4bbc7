// SPDX-License-Identifier: MIT
/*
 * SOIF objects, their parser and printer.
 *
 * A SOIF object is a template name, a URL and a set of attributes whose values are counted byte strings: they may hold
 * newlines and any byte. RDM headers and bodies, resource descriptions, schemas and taxonomies all are SOIF. The text
 * form is described in doc/formats/soif.md.
 *
 * Memory comes from and returns to the host's allocator. Procedures return 0 for success and 1 for failure unless they
 * say otherwise; lookups return null where nothing is found. Out-pointers are always written, with null on failure.
 * Null pointers are not accepted unless a procedure says so.
 *
 * An object, a buffer and a stream are each used by one thread at a time. The table of streams is one for the process
 * and is not locked: streams are opened and finished by one thread at a time.
 */
#ifndef LIBCS_SOIF_H
#define LIBCS_SOIF_H

#include <stdio.h>

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/// AVPair is one attribute. It owns its name and its value: `vsize` bytes and a NUL that is not counted, so that a
/// value without a NUL of its own can be used as text; a value of size 0 may be null instead. Names that come from the
/// parser are in lower case.
typedef struct AVPair {
  char *attribute;
  char *value;
  int32_t vsize;
} AVPair;

/// SOIF is one object. It owns its texts, its table and every AVPair in the table. Names are compared in any letter
/// case but hashed as they are spelled: an attribute is reliably found only under the spelling it was stored with,
/// which in practice is lower case. Several attributes may have the same name; the one stored first is found.
typedef struct SOIF {
  char *template_name;
  char *url;
  cshashtable *attrs;
  int32_t attr_count;  /* insertions ever tried; a deletion does not lower it */
  int32_t value_bytes; /* the sizes of their values; neither */
} SOIF;

/// SOIFBuffer is a text that grows. `data` ends with a NUL from the first append on.
typedef struct SOIFBuffer {
  char *data;
  int32_t length;       /* bytes in use, without the NUL */
  int32_t reserved;     /* 0 */
  int32_t size;         /* bytes of `data`: more than `length`, or as many when `initial_size` is 0 */
  int32_t initial_size; /* as given at creation */
} SOIFBuffer;

/// soif_output_fn consumes exactly `length` bytes; its result is ignored.
typedef int (*soif_output_fn)(void *argument, const void *bytes, int32_t length);

/// soif_stream is a slot of the stream table: a parse stream has a file or a string to read, a print stream an output
/// function. Nothing a slot points to is owned by it. All fields of a free slot are 0.
typedef struct soif_stream {
  int16_t in_use; /* 1 while a stream has the slot */
  soif_output_fn output;
  void *output_argument;
  FILE *input_file; /* null when a string is read */
  const char *input_string;
  int32_t input_length;
  int32_t input_position; /* index of the next byte of the string */
  char **accept;          /* null-terminated names of the attributes to keep; null: all */
} soif_stream;

/// _soif_state is the table of streams; a stream is an index into it.
extern soif_stream _soif_state[256];

/* ---- Attributes ---- */

/// avpair_create stores a new pair with copies of `name` and of the `vsize` bytes at `value`; `value` may be null when
/// `vsize` is 0. 0; 1 for a null name, a negative size and when memory fails.
int avpair_create(const char *name, const char *value, int32_t vsize, AVPair **out) QX_NOEXCEPT;

/// avpair_copy returns a new pair with copies of name and value, or null when memory fails.
void *avpair_copy(const void *pair) QX_NOEXCEPT;

/// avpair_copy_useval returns a new pair with a copy of the name and the very value of `pair`, which the new pair now
/// owns; a null value of size 0 stays null. Null, and the value stays with `pair`, for a null name, for a null value
/// that has a size and when memory fails.
void *avpair_copy_useval(const void *pair) QX_NOEXCEPT;

/// avpair_compare returns 0 when the pair's name is `name` in any letter case; otherwise below or above 0, as their
/// lower-case forms are ordered.
int avpair_compare(const void *pair, const void *name) QX_NOEXCEPT;

/// avpair_free releases the pair with its name and its value, which must come from host_alloc. 0; 1 for a null pair.
int avpair_free(AVPair *pair) QX_NOEXCEPT;

/// avpair_hash returns cshashtable_hf_default of the pair's name.
uint32_t avpair_hash(const AVPair *pair) QX_NOEXCEPT;

/* ---- Objects ---- */

/// soif_create stores a new object without attributes. A null or empty template name becomes "OBJECT", a null or empty
/// URL "-"; both are copied. A bucket count below 1 becomes 23. Objects with one bucket print their attributes in the
/// order of insertion. 0; 1 when memory fails.
int soif_create(const char *template_name, const char *url, int32_t nbuckets, SOIF **out) QX_NOEXCEPT;

/// soif_free releases the object with all it owns; null is ignored. Always 0.
int soif_free(SOIF *s) QX_NOEXCEPT;

/// soif_compare compares the object's URL with `url` as strcmp does: letter case counts.
int soif_compare(const SOIF *s, const char *url) QX_NOEXCEPT;

/// soif_find returns the attribute `name`, which still belongs to the object, or null.
AVPair *soif_find(const SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_findval returns the value of the attribute `name`, which still belongs to the object, or null.
char *soif_findval(const SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_insert adds an attribute with copies of `name` and of the `vsize` bytes at `value`, which the table's copy
/// function makes. It is hashed under `name`, whatever the copy is called. 0, or 1 as avpair_create; the object's
/// counters are raised in either case.
int soif_insert(SOIF *s, const char *name, const char *value, int32_t vsize) QX_NOEXCEPT;

/// soif_insert_nocopy adds an attribute with a copy of `name` that owns `value` itself: a block of host_alloc with
/// `vsize` bytes and a NUL, or null when `vsize` is 0. 0; 1, and the value is still the caller's, for a null name, for
/// a null value that has a size and when memory fails. The object's counters are raised in either case.
int soif_insert_nocopy(SOIF *s, const char *name, char *value, int32_t vsize) QX_NOEXCEPT;

/// soif_delete removes and releases the first attribute `name`; the object's counters stay. 0; 1 when there is none.
int soif_delete(SOIF *s, const char *name) QX_NOEXCEPT;

/// soif_multivalue_attrcmp returns 1 when `attribute` is a numbered instance of `base`, that is `base` in any letter
/// case, a hyphen and decimal digits ("author-12" of "author"), else 0. A base is no instance of itself.
int soif_multivalue_attrcmp(const char *base, const char *attribute) QX_NOEXCEPT;

/* ---- Buffers ---- */

/// soif_buffer_create stores a new empty buffer with room for `initial_size` bytes (a negative size counts as 0) and
/// returns its data, uninitialised. Null when memory fails.
char *soif_buffer_create(int32_t initial_size, SOIFBuffer **out) QX_NOEXCEPT;

/// soif_buffer_increase makes room for `n` bytes more and returns the data, which may have moved. Null, with the buffer
/// as it was, for a negative `n`, a size past 2^31 - 1 and when memory fails.
char *soif_buffer_increase(SOIFBuffer *b, int32_t n) QX_NOEXCEPT;

/// soif_buffer_append appends `n` bytes and a NUL to a SOIFBuffer; nothing when `n` is 0 or less. A buffer without room
/// for them grows by exactly `n`. 0, or 1 as soif_buffer_increase. It serves as an output function as it stands.
int soif_buffer_append(void *buffer, const void *bytes, int32_t n) QX_NOEXCEPT;

/// soif_buffer_destroy releases the buffer and its data; null is ignored.
void soif_buffer_destroy(SOIFBuffer *b) QX_NOEXCEPT;

/* ---- Parsing. A stream outside the table has no input; having no slot left for a stream is fatal. ---- */

/// soif_parse_init_file opens a stream that reads `file`, which the caller closes after the stream is finished.
int soif_parse_init_file(FILE *file) QX_NOEXCEPT;

/// soif_parse_init_string opens a stream that reads `length` bytes (0 for null), which need no NUL and must stay until
/// the stream is finished.
int soif_parse_init_string(const char *bytes, int32_t length) QX_NOEXCEPT;

/// soif_parse_set_accept_attr has the stream keep only some attributes: `accept` is a null-terminated array of names in
/// lower case, each of which also stands for its numbered instances. A null array keeps all attributes, an empty one
/// none. The array is not copied. Ignored when the stream is not open. Always 0.
int soif_parse_set_accept_attr(int stream, char **accept) QX_NOEXCEPT;

/// soif_parse reads the next object, which the caller releases with soif_free. 0; 1 when the input ends before an "@",
/// after a syntax error and when memory fails. A damaged object is dropped whole; the next call goes on at the next
/// "@". Template name, URL, attribute name and size must each be shorter than 4096 characters, a value at most 256 MiB.
/// An object that the end of input leaves open is complete. A value that the end of input cuts fails in a file, unless
/// the accept list drops it. In a string the missing bytes of such a value become 0xFF, at most 65,536 of them: a size
/// that would have the value end later than that behind the last byte of the string fails, and does so for a value that
/// the accept list drops as well.
int soif_parse(int stream, SOIF **out) QX_NOEXCEPT;

/// soif_parse_is_eoi returns non-zero at the end of input: once reading a file has met its end, or at the end of a
/// string. An object can be followed by white space, so that the end is known only after soif_parse has returned 1.
int soif_parse_is_eoi(int stream) QX_NOEXCEPT;

/// soif_parse_finish closes the stream. Always 0.
int soif_parse_finish(int stream) QX_NOEXCEPT;

/* ---- Printing. A stream outside the table, or without an output function, drops what is printed. ---- */

/// soif_print_init_fn opens a stream that hands what is printed to `fn` with `argument`.
int soif_print_init_fn(soif_output_fn fn, void *argument) QX_NOEXCEPT;

/// soif_print_init_file opens a stream that writes to `file`, which the caller closes after the stream is finished.
int soif_print_init_file(FILE *file) QX_NOEXCEPT;

/// soif_print_init_string opens a stream that appends to a new buffer, stored in `*out`; null there, and what is
/// printed is dropped, when memory fails. The caller destroys the buffer after the stream is finished.
int soif_print_init_string(SOIFBuffer **out) QX_NOEXCEPT;

/// soif_print writes header, body and trailer. Always 0, as of all print procedures: errors of the output are its own.
int soif_print(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_header writes the line with template name and URL, in one call of the output function.
int soif_print_header(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_body writes the attributes in the order of the table: bucket by bucket, in a bucket by insertion. It
/// leaves out attributes of size 0. Three calls of the output function for each: label, value, newline.
int soif_print_body(int stream, const SOIF *s) QX_NOEXCEPT;

/// soif_print_trailer writes the closing brace and its newline, in one call of the output function.
int soif_print_trailer(int stream) QX_NOEXCEPT;

/// soif_print_finish closes the stream.
int soif_print_finish(int stream) QX_NOEXCEPT;

QX_END

#endif
