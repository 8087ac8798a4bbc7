// SPDX-License-Identifier: MIT
/*
 * Containers (list, hash table, stack, queue, priority queue) and the CSIO buffer.
 *
 * A container is a record that its create function makes and its free function releases. Records, nodes, buckets and
 * levels come from the host's allocator; items pass through the container's callbacks: `copy` makes what is stored,
 * `compare` answers 0 for a match, `free` releases what was stored. A list or hash table as created keeps private
 * copies of NUL-terminated strings: strdup, strcmp and free of the C library. Stacks and queues keep the caller's
 * pointers and release nothing.
 *
 * Functions of type uint32_t answer 0 for success and 1 for a null argument, for memory that failed (nothing is stored
 * then) and, when they delete, for nothing found. Functions that return an item answer null when there is none; an item
 * taken out of a container belongs to the caller, one merely looked at stays the container's.
 *
 * Nothing here locks: a container or a buffer is used by one thread at a time.
 */
#ifndef LIBCS_ADT_H
#define LIBCS_ADT_H

#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Lists ---- */

typedef struct cslist_node {
  void *data; /* the item; null when the copy callback returned null */
  struct cslist_node *next;
} cslist_node;

/// cs_free_fn releases an item; cs_compare_fn answers 0 when an item matches a key; cs_copy_fn returns what is to be
/// stored for an item; cs_hash_fn returns the hash value of a key.
typedef void (*cs_free_fn)(void *item);
typedef int (*cs_compare_fn)(const void *item, const void *key);
typedef void *(*cs_copy_fn)(const void *item);
typedef uint32_t (*cs_hash_fn)(const void *key);

/// cslist is a singly linked list.
typedef struct cslist {
  cslist_node *head; /* null when the list is empty */
  cslist_node *tail; /* where cslist_append goes on; not touched by cslist_prepend */
  int32_t count;     /* items put in less items taken out; after cslist_prepend more than the nodes within reach */
  cs_free_fn free;
  cs_compare_fn compare;
  cs_copy_fn copy;
} cslist;

/// cslist_create makes an empty list that keeps copies of strings. On failure `*out` is null.
uint32_t cslist_create(cslist **out) QX_NOEXCEPT;

/// cslist_set_compare, cslist_set_free and cslist_set_copy install a callback for all that follows; items that are
/// already stored stay as they are.
uint32_t cslist_set_compare(cslist *l, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cslist_set_free(cslist *l, cs_free_fn f) QX_NOEXCEPT;
uint32_t cslist_set_copy(cslist *l, cs_copy_fn f) QX_NOEXCEPT;

/// cslist_append stores copy(item) at the end.
uint32_t cslist_append(cslist *l, const void *item) QX_NOEXCEPT;

/// cslist_prepend stores copy(item) in place of the first node: the former first node leaves the chain, unreleased, and
/// still counts. Callers rely on a stack that holds its latest item only.
uint32_t cslist_prepend(cslist *l, const void *item) QX_NOEXCEPT;

/// cslist_behead removes the first node and returns its item, which is the caller's to release.
void *cslist_behead(cslist *l) QX_NOEXCEPT;

/// cslist_delete removes the first item that matches `key` and releases it.
uint32_t cslist_delete(cslist *l, const void *key) QX_NOEXCEPT;

/// cslist_find returns the first item that matches `key`.
void *cslist_find(const cslist *l, const void *key) QX_NOEXCEPT;

/// cslist_apply calls `function` with each item, first to last; a null list or function is ignored.
void cslist_apply(cslist *l, void (*function)(void *data)) QX_NOEXCEPT;

/// cslist_do_free releases the list and, when `free_items` is not 0, its items. It releases at most `count` nodes, and
/// warns in the log when the chain ended before.
uint32_t cslist_do_free(cslist *l, int free_items) QX_NOEXCEPT;

/// cslist_count returns the number of nodes in the chain, 0 for a null list.
int32_t cslist_count(const cslist *l) QX_NOEXCEPT;

/// cslist_copy_nop returns the item itself, cslist_free_nop does nothing: callbacks of lists of foreign pointers.
void *cslist_copy_nop(const void *item) QX_NOEXCEPT;
void cslist_free_nop(void *item) QX_NOEXCEPT;

/// cslist_cmp_nop compares the first four bytes at two addresses as memcmp does. In spite of its name it is not idle:
/// queues find items by it.
int cslist_cmp_nop(const void *a, const void *b) QX_NOEXCEPT;

/* ---- Hash tables ---- */

/// cshashtable is an array of lists. Equal keys may be inserted any number of times.
typedef struct cshashtable {
  cslist **buckets; /* a bucket is null when memory failed for it */
  int32_t nbuckets;
  int32_t count; /* items inserted less items deleted */
  cs_hash_fn hash;
  cs_copy_fn copy; /* the callbacks that every bucket carries */
  cs_compare_fn compare;
  cs_free_fn free;
} cshashtable;

/// What cshashtable_stats tells about a table.
typedef struct cshashtable_statistics {
  int32_t items;    /* the table's count */
  int32_t buckets;  /* the number of buckets */
  uint32_t longest; /* the count of the longest bucket */
  int32_t chained;  /* the counts of all buckets together */
  double mean;      /* chained / buckets */
  double spread;    /* always 0 */
} cshashtable_statistics;

/// cshashtable_create makes an empty table; a bucket count below 1 means 7. On failure `*out` is null.
uint32_t cshashtable_create(int32_t nbuckets, cshashtable **out) QX_NOEXCEPT;

/// cshashtable_set_hash installs the hash function; the others install a callback in the table and all its buckets.
uint32_t cshashtable_set_hash(cshashtable *t, cs_hash_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_copy(cshashtable *t, cs_copy_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_compare(cshashtable *t, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_free(cshashtable *t, cs_free_fn f) QX_NOEXCEPT;

/// cshashtable_insert stores copy(item) under `key`, behind the items that are there.
uint32_t cshashtable_insert(cshashtable *t, const void *key, const void *item) QX_NOEXCEPT;

/// cshashtable_delete removes and releases the first inserted of the items that match `key`.
uint32_t cshashtable_delete(cshashtable *t, const void *key) QX_NOEXCEPT;

/// cshashtable_findhv returns the first inserted of the items that match `key` in the bucket of `hash_value`.
void *cshashtable_findhv(const cshashtable *t, const void *key, uint32_t hash_value) QX_NOEXCEPT;

/// cshashtable_find returns the first inserted of the items that match `key`.
void *cshashtable_find(const cshashtable *t, const void *key) QX_NOEXCEPT;

/// cshashtable_iterate returns the item after `previous`, which was inserted under `key`; with null for either the
/// first item from the bucket of `key` on, or of the whole table. Null at the end.
void *cshashtable_iterate(cshashtable *t, const void *key, const void *previous) QX_NOEXCEPT;

/// cshashtable_free releases the table and its items.
uint32_t cshashtable_free(cshashtable *t) QX_NOEXCEPT;

/// cshashtable_hf_default returns the hash value of a NUL-terminated string, 0 for null.
uint32_t cshashtable_hf_default(const void *key) QX_NOEXCEPT;

/// cshashtable_stats fills `*out`.
void cshashtable_stats(const cshashtable *t, cshashtable_statistics *out) QX_NOEXCEPT;

/* ---- Stacks ---- */

/// csstack is a list of the caller's pointers. It holds the latest item only: see cslist_prepend.
typedef cslist csstack;

/// csstack_create makes an empty stack. On failure `*out` is null.
uint32_t csstack_create(csstack **out) QX_NOEXCEPT;

/// csstack_push puts an item on the stack.
uint32_t csstack_push(csstack *s, void *item) QX_NOEXCEPT;

/// csstack_pop removes and returns the latest item.
void *csstack_pop(csstack *s) QX_NOEXCEPT;

/// csstack_free releases the stack, not its items.
uint32_t csstack_free(csstack *s) QX_NOEXCEPT;

/* ---- Queues ---- */

/// csqueue is a list of the caller's pointers: first in, first out.
typedef cslist csqueue;

/// csqueue_create makes an empty queue. On failure `*out` is null.
uint32_t csqueue_create(csqueue **out) QX_NOEXCEPT;

/// csqueue_put adds an item at the end.
uint32_t csqueue_put(csqueue *q, void *item) QX_NOEXCEPT;

/// csqueue_get removes and returns the oldest item.
void *csqueue_get(csqueue *q) QX_NOEXCEPT;

/// csqueue_delete removes the oldest item whose first four bytes are those at `key`.
uint32_t csqueue_delete(csqueue *q, const void *key) QX_NOEXCEPT;

/// csqueue_peek returns the oldest item without removing it.
void *csqueue_peek(const csqueue *q) QX_NOEXCEPT;

/// csqueue_free releases the queue, not its items.
uint32_t csqueue_free(csqueue *q) QX_NOEXCEPT;

/* ---- Priority queues ---- */

/// cspriq is a list of levels in ascending order of priority, one for each priority that was ever put; levels stay when
/// they run empty. The smallest priority is served first, items of one priority in the order they were put.
typedef cslist cspriq;
typedef struct cspriq_level {
  csqueue *queue;
  int32_t priority;
} cspriq_level;

/// cspriq_create makes an empty priority queue. On failure `*out` is null.
uint32_t cspriq_create(cspriq **out) QX_NOEXCEPT;

/// cspriq_put adds an item, borrowed from the caller, behind those of its priority.
uint32_t cspriq_put(cspriq *pq, void *item, int32_t priority) QX_NOEXCEPT;

/// cspriq_get removes and returns the oldest item of the smallest priority.
void *cspriq_get(cspriq *pq) QX_NOEXCEPT;

/// cspriq_getpri removes and returns the oldest item of one priority.
void *cspriq_getpri(cspriq *pq, int32_t priority) QX_NOEXCEPT;

/// cspriq_free releases the queue and its levels, not the items.
uint32_t cspriq_free(cspriq *pq) QX_NOEXCEPT;

/* ---- The CSIO buffer ---- */

/// The backings of a CSIO buffer, as its `flags` name them. With both, memory is read and the file is its copy.
enum { CSIO_MEMORY = 0x01, CSIO_FILE = 0x10 };

/// csio is a stream of bytes that is built piece by piece and read back. It begins in memory; when it outgrows
/// `max_memory` it moves to a temporary file and goes on there, through a block of 4096 bytes.
///
/// `length` is the number of bytes offered, which is more than the number stored when memory or a write failed.
typedef struct csio {
  uint32_t flags;      /* CSIO_MEMORY, CSIO_FILE or, after csio_dup2file, both */
  unsigned char *data; /* memory backing: the bytes and a NUL after them; null until there are any */
  uint32_t length;
  uint32_t position;   /* where csio_copy reads next */
  uint32_t capacity;   /* bytes allocated for `data` */
  uint32_t max_memory; /* most bytes to allocate for `data`, 0 for no limit; set by the owner */
  uint32_t increment;  /* fewest bytes to grow by */
  char *filename;      /* file backing: the path, from the host's allocator; null until there is a file */
  host_fd fd;          /* the open file, or -1 */
  int32_t remove_file; /* 1 when the buffer made the file and csio_reset removes it */
  unsigned char *wbuf; /* bytes on their way to the file */
  int32_t wbuf_len;    /* how many */
  int32_t finished;    /* 1 when the buffer takes no more bytes */
} csio;

/// csio_create returns a new buffer in memory without a ceiling and stores it in `*out`; null when memory fails.
csio *csio_create(csio **out) QX_NOEXCEPT;

/// csio_increase makes room in memory for `need` more bytes, or for `increment` when that is more. A buffer that would
/// outgrow its ceiling moves to a file instead. Without memory backing nothing happens.
void csio_increase(csio *io, uint32_t need) QX_NOEXCEPT;

/// csio_append adds `count` bytes and returns how many were stored: all, or 0 when the buffer is finished, memory, the
/// temporary file or a write fails (the log says why), or the length would pass 2^32 - 1. Null `bytes` write what waits
/// to the file, or drop it when the descriptor has been released, and return 0; a count below 1 does nothing. `io` is a
/// csio, untyped because the function serves as a SOIF output function.
int csio_append(void *io, const void *bytes, int32_t count) QX_NOEXCEPT;

/// csio_finish closes the buffer for writing, once. Always 0.
int csio_finish(csio *io) QX_NOEXCEPT;

/// csio_rewind sets the read position to the beginning; null is ignored.
void csio_rewind(csio *io) QX_NOEXCEPT;

/// csio_copy copies up to `n` bytes from the read position to `destination` and moves the position on. Returns how
/// many; 0 at the end, -1 when the file cannot be read. Any buffer can be read, finished or not.
int32_t csio_copy(csio *io, void *destination, int32_t n) QX_NOEXCEPT;

/// csio_convert2file moves a buffer from memory to a temporary file. An empty buffer gets its file when bytes arrive.
/// Always 0. When there could be no file the bytes are lost, and the length is 0; there may be a `filename` even then.
int csio_convert2file(csio *io) QX_NOEXCEPT;

/// csio_dup2file finishes a buffer in memory and writes its bytes to a temporary file besides, for readers that need a
/// path. 0, or the flags of a buffer that already has a file. Where there could be no file, `filename` may be set too.
int csio_dup2file(csio *io) QX_NOEXCEPT;

/// csio_releasefd closes the descriptor and keeps the file. Bytes on their way to the file stay in `wbuf`: the next
/// append opens the file again, keeps what it holds by then and writes them behind it. What flushes before that drops
/// them, as csio_finish and csio_rewind do. Always 0.
int csio_releasefd(csio *io) QX_NOEXCEPT;

/// csio_reset empties the buffer, removes the file that it made and takes bytes again. Its backing, ceiling and
/// increment stay: a buffer that had moved to a file makes a new one. Null is ignored.
void csio_reset(csio *io) QX_NOEXCEPT;

/// csio_destroy releases the buffer; null is ignored.
void csio_destroy(csio *io) QX_NOEXCEPT;

QX_END

#endif
