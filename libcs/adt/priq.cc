// SPDX-License-Identifier: MIT
#include <libcs/adt.h>

#include "libcs/guard.h"

using namespace rdm;

namespace {

cspriq_level &level_of(const cslist_node &node) { return *static_cast<cspriq_level *>(node.data); }

cslist_node *first_node(const cspriq *pq) { return pq == nullptr ? nullptr : pq->head; }

/// make_level returns a node with a level without items, or null if allocation fails.
HostPtr<cslist_node> make_level(int32_t priority) {
  csqueue *queue = nullptr;
  csqueue_create(&queue);
  ListPtr owned_queue(queue);
  HostPtr<cspriq_level> level = host_new<cspriq_level>();
  HostPtr<cslist_node> node = host_new<cslist_node>();
  if (!owned_queue || !level || !node) return nullptr;
  *level = {.queue = owned_queue.release(), .priority = priority};
  node->data = level.release();
  return node;
}

/// insert_after inserts a level after `previous`, or at the front if that is null. The tail is set for the first node
/// only, because cslist_append is never called.
void insert_after(cspriq &pq, cslist_node *previous, cslist_node *node) {
  cslist_node *&link = previous == nullptr ? pq.head : previous->next;
  node->next = link;
  link = node;
  if (previous == nullptr && pq.tail == nullptr) pq.tail = node;
  ++pq.count;
}

}  // namespace

uint32_t cspriq_create(cspriq **out) noexcept { return cslist_create(out); }

uint32_t cspriq_put(cspriq *pq, void *item, int32_t priority) noexcept {
  if (pq == nullptr) return 1;
  cslist_node *previous = nullptr;
  for (cslist_node *node = pq->head; node != nullptr && level_of(*node).priority <= priority; node = node->next) {
    if (level_of(*node).priority == priority) return csqueue_put(level_of(*node).queue, item);
    previous = node;
  }
  cslist_node *const node = make_level(priority).release();
  if (node == nullptr) return 1;
  insert_after(*pq, previous, node);
  return csqueue_put(level_of(*node).queue, item);
}

void *cspriq_get(cspriq *pq) noexcept {
  for (const cslist_node *node = first_node(pq); node != nullptr; node = node->next)
    if (void *const item = csqueue_get(level_of(*node).queue)) return item;
  return nullptr;
}

void *cspriq_getpri(cspriq *pq, int32_t priority) noexcept {
  for (const cslist_node *node = first_node(pq); node != nullptr; node = node->next)
    if (level_of(*node).priority == priority) return csqueue_get(level_of(*node).queue);
  return nullptr;
}

uint32_t cspriq_free(cspriq *pq) noexcept {
  for (const cslist_node *node = first_node(pq); node != nullptr; node = node->next) {
    csqueue_free(level_of(*node).queue);
    host_free(node->data);
  }
  return cslist_do_free(pq, 0);
}
