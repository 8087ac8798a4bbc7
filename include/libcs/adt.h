/*
 * Containers and the CSIO buffer.
 */
#ifndef LIBCS_ADT_H
#define LIBCS_ADT_H

#include <qxapi/qxapi.h>

QX_BEGIN

typedef struct cslist_node {
  void *data;
  struct cslist_node *next;
} cslist_node;
typedef void (*cs_free_fn)(void *item);
typedef int (*cs_compare_fn)(const void *item, const void *key);
typedef void *(*cs_copy_fn)(const void *item);
typedef uint32_t (*cs_hash_fn)(const void *key);
typedef struct cslist {
  cslist_node *head;
  cslist_node *tail;
  int32_t count;
  cs_free_fn free;
  cs_compare_fn compare;
  cs_copy_fn copy;
} cslist;
typedef struct cshashtable {
  cslist **buckets;
  int32_t nbuckets;
  int32_t count;
  cs_hash_fn hash;
  cs_copy_fn copy;
  cs_compare_fn compare;
  cs_free_fn free;
} cshashtable;
typedef cslist csstack;
typedef cslist csqueue;
typedef cslist cspriq;
typedef struct cspriq_level {
  csqueue *queue;
  int32_t priority;
} cspriq_level;
typedef struct cshashtable_statistics {
  int32_t items;
  int32_t buckets;
  uint32_t longest;
  int32_t chained;
  double mean;
  double spread;
} cshashtable_statistics;
uint32_t cslist_create(cslist **out) QX_NOEXCEPT;
uint32_t cslist_set_compare(cslist *l, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cslist_set_free(cslist *l, cs_free_fn f) QX_NOEXCEPT;
uint32_t cslist_set_copy(cslist *l, cs_copy_fn f) QX_NOEXCEPT;
uint32_t cslist_append(cslist *l, const void *item) QX_NOEXCEPT;
uint32_t cslist_prepend(cslist *l, const void *item) QX_NOEXCEPT;
void *cslist_behead(cslist *l) QX_NOEXCEPT;
uint32_t cslist_delete(cslist *l, const void *key) QX_NOEXCEPT;
void *cslist_find(const cslist *l, const void *key) QX_NOEXCEPT;
void cslist_apply(cslist *l, void (*function)(void *data)) QX_NOEXCEPT;
uint32_t cslist_do_free(cslist *l, int free_items) QX_NOEXCEPT;
int32_t cslist_count(const cslist *l) QX_NOEXCEPT;
void *cslist_copy_nop(const void *item) QX_NOEXCEPT;
void cslist_free_nop(void *item) QX_NOEXCEPT;
int cslist_cmp_nop(const void *a, const void *b) QX_NOEXCEPT;
uint32_t cshashtable_create(int32_t nbuckets, cshashtable **out) QX_NOEXCEPT;
uint32_t cshashtable_set_hash(cshashtable *t, cs_hash_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_copy(cshashtable *t, cs_copy_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_compare(cshashtable *t, cs_compare_fn f) QX_NOEXCEPT;
uint32_t cshashtable_set_free(cshashtable *t, cs_free_fn f) QX_NOEXCEPT;
uint32_t cshashtable_insert(cshashtable *t, const void *key, const void *item) QX_NOEXCEPT;
uint32_t cshashtable_delete(cshashtable *t, const void *key) QX_NOEXCEPT;
void *cshashtable_findhv(const cshashtable *t, const void *key, uint32_t hash_value) QX_NOEXCEPT;
void *cshashtable_find(const cshashtable *t, const void *key) QX_NOEXCEPT;
void *cshashtable_iterate(cshashtable *t, const void *key, const void *previous) QX_NOEXCEPT;
uint32_t cshashtable_free(cshashtable *t) QX_NOEXCEPT;
uint32_t cshashtable_hf_default(const void *key) QX_NOEXCEPT;
void cshashtable_stats(const cshashtable *t, cshashtable_statistics *out) QX_NOEXCEPT;
uint32_t csstack_create(csstack **out) QX_NOEXCEPT;
uint32_t csstack_push(csstack *s, void *item) QX_NOEXCEPT;
void *csstack_pop(csstack *s) QX_NOEXCEPT;
uint32_t csstack_free(csstack *s) QX_NOEXCEPT;
uint32_t csqueue_create(csqueue **out) QX_NOEXCEPT;
uint32_t csqueue_put(csqueue *q, void *item) QX_NOEXCEPT;
void *csqueue_get(csqueue *q) QX_NOEXCEPT;
uint32_t csqueue_delete(csqueue *q, const void *key) QX_NOEXCEPT;
void *csqueue_peek(const csqueue *q) QX_NOEXCEPT;
uint32_t csqueue_free(csqueue *q) QX_NOEXCEPT;
uint32_t cspriq_create(cspriq **out) QX_NOEXCEPT;
uint32_t cspriq_put(cspriq *pq, void *item, int32_t priority) QX_NOEXCEPT;
void *cspriq_get(cspriq *pq) QX_NOEXCEPT;
void *cspriq_getpri(cspriq *pq, int32_t priority) QX_NOEXCEPT;
uint32_t cspriq_free(cspriq *pq) QX_NOEXCEPT;
typedef struct csio {
  uint32_t flags;
  unsigned char *data;
  uint32_t length;
  uint32_t position;
  uint32_t capacity;
  uint32_t max_memory;
  uint32_t increment;
  char *filename;
  host_fd fd;
  int32_t remove_file;
  unsigned char *wbuf;
  int32_t wbuf_len;
  int32_t finished;
} csio;
csio *csio_create(csio **out) QX_NOEXCEPT;
void csio_increase(csio *io, uint32_t need) QX_NOEXCEPT;
int csio_append(void *io, const void *bytes, int32_t count) QX_NOEXCEPT;
/* void *: it serves as a SOIF output function as it stands */
int csio_finish(csio *io) QX_NOEXCEPT;
void csio_rewind(csio *io) QX_NOEXCEPT;
int32_t csio_copy(csio *io, void *destination, int32_t n) QX_NOEXCEPT;
int csio_convert2file(csio *io) QX_NOEXCEPT;
int csio_dup2file(csio *io) QX_NOEXCEPT;
int csio_releasefd(csio *io) QX_NOEXCEPT;
void csio_reset(csio *io) QX_NOEXCEPT;
void csio_destroy(csio *io) QX_NOEXCEPT;

QX_END

#endif
