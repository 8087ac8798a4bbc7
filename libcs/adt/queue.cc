// SPDX-License-Identifier: MIT
#include <libcs/adt.h>

uint32_t csqueue_create(csqueue **out) noexcept {
  const uint32_t status = cslist_create(out);
  cslist_set_compare(*out, cslist_cmp_nop);
  cslist_set_free(*out, cslist_free_nop);
  cslist_set_copy(*out, cslist_copy_nop);
  return status;
}

uint32_t csqueue_put(csqueue *q, void *item) noexcept { return cslist_append(q, item); }
void *csqueue_get(csqueue *q) noexcept { return cslist_behead(q); }
uint32_t csqueue_delete(csqueue *q, const void *key) noexcept { return cslist_delete(q, key); }
void *csqueue_peek(const csqueue *q) noexcept { return q != nullptr && q->head != nullptr ? q->head->data : nullptr; }
uint32_t csqueue_free(csqueue *q) noexcept { return cslist_do_free(q, 1); }
