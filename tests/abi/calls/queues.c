// SPDX-License-Identifier: MIT
/* Stacks, queues and priority queues. */
#include <libcs/adt.h>

#include "check.h"

static char one[] = "one ", two[] = "two ", three[] = "three";

static void hold_the_latest(void) {
  csstack *stack = NULL;
  CHECK(csstack_create(&stack) == 0);
  CHECK(csstack_pop(stack) == NULL);
  CHECK(csstack_push(stack, one) == 0);
  CHECK(csstack_pop(stack) == one);
  CHECK(csstack_free(stack) == 0);
}

static void serve_in_order(void) {
  csqueue *queue = NULL;
  CHECK(csqueue_create(&queue) == 0);
  CHECK(csqueue_put(queue, one) == 0);
  CHECK(csqueue_put(queue, two) == 0);
  CHECK(csqueue_put(queue, three) == 0);
  CHECK(csqueue_delete(queue, "two ") == 0);
  CHECK(csqueue_delete(queue, "two ") == 1);
  CHECK(csqueue_peek(queue) == one);
  CHECK(csqueue_get(queue) == one);
  CHECK(csqueue_get(queue) == three);
  CHECK(csqueue_get(queue) == NULL);
  CHECK(csqueue_free(queue) == 0);
}

static void serve_by_priority(void) {
  cspriq *queue = NULL;
  CHECK(cspriq_create(&queue) == 0);
  CHECK(cspriq_put(queue, one, 5) == 0);
  CHECK(cspriq_put(queue, two, -1) == 0);
  CHECK(cspriq_put(queue, three, 5) == 0);
  CHECK(cspriq_getpri(queue, 7) == NULL);
  CHECK(cspriq_getpri(queue, 5) == one);
  CHECK(cspriq_get(queue) == two);
  CHECK(cspriq_get(queue) == three);
  CHECK(cspriq_get(queue) == NULL);
  CHECK(cspriq_free(queue) == 0);
}

int main(void) {
  hold_the_latest();
  serve_in_order();
  serve_by_priority();
  return 0;
}
