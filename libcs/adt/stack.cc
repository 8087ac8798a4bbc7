// SPDX-License-Identifier: MIT
#include <libcs/adt.h>

uint32_t csstack_create(csstack **out) noexcept {
  const uint32_t status = cslist_create(out);
  cslist_set_copy(*out, cslist_copy_nop);
  cslist_set_free(*out, cslist_free_nop);
  return status;
}

uint32_t csstack_push(csstack *s, void *item) noexcept { return cslist_prepend(s, item); }
void *csstack_pop(csstack *s) noexcept { return cslist_behead(s); }
uint32_t csstack_free(csstack *s) noexcept { return cslist_do_free(s, 1); }
