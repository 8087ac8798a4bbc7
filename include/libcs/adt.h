// SPDX-License-Identifier: MIT
/*
 * Containers (list, hash table, stack, queue, priority queue) and the CSIO buffer.
 *
 * A container is a record that its create function allocates and its free function releases. Records, nodes, buckets
 * and levels come from the host's allocator; items pass through the container's callbacks: `copy` makes the stored
 * item, `compare` returns 0 for a match, `free` releases a stored item. A new list or hash table stores copies of
 * NUL-terminated strings, with strdup(), strcmp() and free() of the C library. Stacks and queues store the caller's
 * pointers and release nothing.
 *
 * Functions of type uint32_t return 0 for success and 1 for a null argument, if allocation fails (the item is not
 * stored then) and, for deletions, if no item matches. Functions that return an item return null if there is no such
 * item. The caller owns an item that was removed from a container; other returned items belong to the container.
 *
 * There are no locks: only one thread at a time may use a container or a buffer.
 */
#ifndef LIBCS_ADT_H
#define LIBCS_ADT_H

#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Lists ---- */

typedef struct cslist_node {
  void *data; /* the item; null if the copy callback returned null */
  struct cslist_node *next;
} cslist_node;

/// cs_free_fn releases an item; cs_compare_fn returns 0 if an item matches a key; cs_copy_fn returns the pointer to
/// store for an item; cs_hash_fn returns the hash value of a key.
typedef void (*cs_free_fn)(void *item);
typedef int (*cs_compare_fn)(const void *item, const void *key);
typedef void *(*cs_copy_fn)(const void *item);
typedef uint32_t (*cs_hash_fn)(const void *key);

/// cslist is a singly linked list.
typedef struct cslist {
  cslist_node *head; /* null if the list is empty */
  cslist_node *tail; /* where cslist_append appends; not changed by cslist_prepend */
  int32_t count;     /* items added less items removed; after cslist_prepend more than the linked nodes */
  cs_free_fn free;
  cs_compare_fn compare;
  cs_copy_fn copy;
} cslist;

/// cslist_create makes an empty list of string copies. On failure `*out` is null.
uint32_t cslist_create(cslist **out) QX_NOEXCEPT;

/// cslist_set_compare, cslist_set_free and cslist_set_copy replace a callback; items already stored do not change.
uint32_t cslist_set_compare(cslist *l, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cslist_set_free(cslist *l, cs_free_fn f) QX_NOEXCEPT;
uint32_t cslist_set_copy(cslist *l, cs_copy_fn f) QX_NOEXCEPT;

/// cslist_append stores copy(item) at the end.
uint32_t cslist_append(cslist *l, const void *item) QX_NOEXCEPT;

/// cslist_prepend replaces the first node by one that stores copy(item): the former first node is unlinked, not
/// released, and still counted. Callers rely on this: a stack holds its latest item only.
uint32_t cslist_prepend(cslist *l, const void *item) QX_NOEXCEPT;

/// cslist_behead removes the first node and returns its item, which the caller releases.
void *cslist_behead(cslist *l) QX_NOEXCEPT;

/// cslist_delete removes the first item that matches `key` and releases it.
uint32_t cslist_delete(cslist *l, const void *key) QX_NOEXCEPT;

/// cslist_find returns the first item that matches `key`.
void *cslist_find(const cslist *l, const void *key) QX_NOEXCEPT;

/// cslist_apply calls `function` with each item, in list order; a null list or function is ignored.
void cslist_apply(cslist *l, void (*function)(void *data)) QX_NOEXCEPT;

/// cslist_do_free releases the list and, if `free_items` is not 0, its items. It releases at most `count` nodes, and
/// logs a warning if there are fewer.
uint32_t cslist_do_free(cslist *l, int free_items) QX_NOEXCEPT;

/// cslist_count returns the number of linked nodes, 0 for a null list.
int32_t cslist_count(const cslist *l) QX_NOEXCEPT;

/// cslist_copy_nop returns the item itself, cslist_free_nop does nothing: callbacks for lists of borrowed pointers.
void *cslist_copy_nop(const void *item) QX_NOEXCEPT;
void cslist_free_nop(void *item) QX_NOEXCEPT;

/// cslist_cmp_nop compares the first four bytes at two addresses like memcmp(), in spite of its name: csqueue_delete
/// finds items by them.
int cslist_cmp_nop(const void *a, const void *b) QX_NOEXCEPT;

/* ---- Hash tables ---- */

/// cshashtable is an array of lists. Any number of equal keys may be inserted.
typedef struct cshashtable {
  cslist **buckets; /* a bucket is null if its allocation failed */
  int32_t nbuckets;
  int32_t count; /* items inserted less items deleted */
  cs_hash_fn hash;
  cs_copy_fn copy; /* copy, compare and free are also those of every bucket */
  cs_compare_fn compare;
  cs_free_fn free;
} cshashtable;

/// cshashtable_statistics is the result of cshashtable_stats.
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

/// cshashtable_set_hash replaces the hash function; the others replace a callback of the table and all its buckets.
uint32_t cshashtable_set_hash(cshashtable *t, cs_hash_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_copy(cshashtable *t, cs_copy_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_compare(cshashtable *t, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_free(cshashtable *t, cs_free_fn f) QX_NOEXCEPT;

/// cshashtable_insert stores copy(item) at the end of the bucket of `key`.
uint32_t cshashtable_insert(cshashtable *t, const void *key, const void *item) QX_NOEXCEPT;

/// cshashtable_delete removes and releases the first inserted item that matches `key`.
uint32_t cshashtable_delete(cshashtable *t, const void *key) QX_NOEXCEPT;

/// cshashtable_findhv returns the first inserted item that matches `key` in the bucket of `hash_value`.
void *cshashtable_findhv(const cshashtable *t, const void *key, uint32_t hash_value) QX_NOEXCEPT;

/// cshashtable_find returns the first inserted item that matches `key`.
void *cshashtable_find(const cshashtable *t, const void *key) QX_NOEXCEPT;

/// cshashtable_iterate returns the item after `previous`, which was inserted under `key`. If `previous` is null, it
/// returns the first item from the bucket of `key` on; if `key` is null, the first of the table. Null at the end.
void *cshashtable_iterate(cshashtable *t, const void *key, const void *previous) QX_NOEXCEPT;

/// cshashtable_free releases the table and its items.
uint32_t cshashtable_free(cshashtable *t) QX_NOEXCEPT;

/// cshashtable_hf_default returns the hash value of a NUL-terminated string, 0 for null.
uint32_t cshashtable_hf_default(const void *key) QX_NOEXCEPT;

/// cshashtable_stats fills `*out`.
void cshashtable_stats(const cshashtable *t, cshashtable_statistics *out) QX_NOEXCEPT;

/* ---- Stacks ---- */

/// csstack is a list of the caller's pointers. It holds its latest item only: see cslist_prepend.
typedef cslist csstack;

/// csstack_create makes an empty stack. On failure `*out` is null.
uint32_t csstack_create(csstack **out) QX_NOEXCEPT;

/// csstack_push puts an item on the stack.
uint32_t csstack_push(csstack *s, void *item) QX_NOEXCEPT;

/// csstack_pop removes and returns the latest item.
void *csstack_pop(csstack *s) QX_NOEXCEPT;

/// csstack_free releases the stack but not its items.
uint32_t csstack_free(csstack *s) QX_NOEXCEPT;

/* ---- Queues ---- */

/// csqueue is a list of the caller's pointers: first in, first out.
typedef cslist csqueue;

/// csqueue_create makes an empty queue. On failure `*out` is null.
uint32_t csqueue_create(csqueue **out) QX_NOEXCEPT;

/// csqueue_put appends an item.
uint32_t csqueue_put(csqueue *q, void *item) QX_NOEXCEPT;

/// csqueue_get removes and returns the oldest item.
void *csqueue_get(csqueue *q) QX_NOEXCEPT;

/// csqueue_delete removes the oldest item whose first four bytes equal those at `key`.
uint32_t csqueue_delete(csqueue *q, const void *key) QX_NOEXCEPT;

/// csqueue_peek returns the oldest item without removing it.
void *csqueue_peek(const csqueue *q) QX_NOEXCEPT;

/// csqueue_free releases the queue but not its items.
uint32_t csqueue_free(csqueue *q) QX_NOEXCEPT;

/* ---- Priority queues ---- */

/// cspriq is a list of levels in ascending order of priority, one for each priority ever used; empty levels stay. The
/// smallest priority is served first, items of equal priority in the order of insertion.
typedef cslist cspriq;
typedef struct cspriq_level {
  csqueue *queue;
  int32_t priority;
} cspriq_level;

/// cspriq_create makes an empty priority queue. On failure `*out` is null.
uint32_t cspriq_create(cspriq **out) QX_NOEXCEPT;

/// cspriq_put appends an item, borrowed from the caller, to the items of its priority.
uint32_t cspriq_put(cspriq *pq, void *item, int32_t priority) QX_NOEXCEPT;

/// cspriq_get removes and returns the oldest item of the smallest priority.
void *cspriq_get(cspriq *pq) QX_NOEXCEPT;

/// cspriq_getpri removes and returns the oldest item of one priority.
void *cspriq_getpri(cspriq *pq, int32_t priority) QX_NOEXCEPT;

/// cspriq_free releases the queue and its levels but not the items.
uint32_t cspriq_free(cspriq *pq) QX_NOEXCEPT;

/* ---- The CSIO buffer ---- */

/// The backings of a CSIO buffer, the values of `flags`. A buffer with both is read from memory; its file is a copy.
enum { CSIO_MEMORY = 0x01, CSIO_FILE = 0x10 };

/// csio is a stream of bytes that is appended to and read back. It starts in memory; when it outgrows `max_memory`, it
/// moves to a temporary file, written through a block of 4096 bytes.
///
/// `length` is the number of bytes offered; fewer are stored if allocation or a write failed.
typedef struct csio {
  uint32_t flags;      /* CSIO_MEMORY, CSIO_FILE or, after csio_dup2file, both */
  unsigned char *data; /* memory backing: the bytes and a NUL; null until the first append */
  uint32_t length;
  uint32_t position;   /* the read position of csio_copy */
  uint32_t capacity;   /* bytes allocated for `data` */
  uint32_t max_memory; /* limit on `capacity`, 0 for none; set by the owner */
  uint32_t increment;  /* fewest bytes to grow by */
  char *filename;      /* file backing: the path, from the host's allocator; null before the file is created */
  host_fd fd;          /* the open file, or -1 */
  int32_t remove_file; /* 1 if the buffer created the file, which csio_reset then removes */
  unsigned char *wbuf; /* the write-behind block of the file */
  int32_t wbuf_len;    /* bytes in it */
  int32_t finished;    /* 1 if no more bytes may be appended */
} csio;

/// csio_create returns a new buffer in memory, without a limit, and stores it in `*out`, or null if allocation fails.
csio *csio_create(csio **out) QX_NOEXCEPT;

/// csio_increase enlarges the memory by `need` bytes, or by `increment` if that is more. A buffer that would exceed
/// `max_memory` moves to a file instead. It does nothing without memory backing.
void csio_increase(csio *io, uint32_t need) QX_NOEXCEPT;

/// csio_append appends `count` bytes. Returns the number stored: all, or 0 if the buffer is finished, memory, the
/// temporary file or a write fails (the log says why), or the length would exceed 2^32 - 1. If `bytes` is null, it
/// flushes the write-behind block, or drops it after csio_releasefd, and returns 0; a count below 1 does nothing. `io`
/// is a csio, untyped so that this is a SOIF output function.
int csio_append(void *io, const void *bytes, int32_t count) QX_NOEXCEPT;

/// csio_finish closes the buffer for writing. Always returns 0.
int csio_finish(csio *io) QX_NOEXCEPT;

/// csio_rewind flushes the buffer and sets the read position to 0; null is ignored.
void csio_rewind(csio *io) QX_NOEXCEPT;

/// csio_copy copies up to `n` bytes from the read position to `destination` and advances the position. Returns their
/// number; 0 at the end, -1 if the file cannot be read. The buffer need not be finished.
int32_t csio_copy(csio *io, void *destination, int32_t n) QX_NOEXCEPT;

/// csio_convert2file moves a buffer from memory to a temporary file, which for an empty buffer is created by the next
/// append. Always returns 0. If the file cannot be created, the bytes are lost and the length is 0; `filename` may be
/// set even then.
int csio_convert2file(csio *io) QX_NOEXCEPT;

/// csio_dup2file finishes a buffer in memory and also writes its bytes to a temporary file, for readers that need a
/// path. Returns 0, or the flags of a buffer that already has a file. `filename` may be set even if the file could not
/// be created.
int csio_dup2file(csio *io) QX_NOEXCEPT;

/// csio_releasefd closes the descriptor and keeps the file. The write-behind block keeps its bytes: the next append
/// reopens the file and writes them after its content at that time. A flush before that, as by csio_finish and
/// csio_rewind, drops them. Always returns 0.
int csio_releasefd(csio *io) QX_NOEXCEPT;

/// csio_reset empties the buffer, removes the file that it created and allows appending. Backing, limit and increment
/// stay: a buffer that had moved to a file creates a new one. Null is ignored.
void csio_reset(csio *io) QX_NOEXCEPT;

/// csio_destroy releases the buffer; null is ignored.
void csio_destroy(csio *io) QX_NOEXCEPT;

QX_END

#endif
