// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <cstdlib>

#include "qxapi/guard.h"
#include "qxapi/posix.h"

struct host_crit {
  pthread_mutex_t mutex;
};

namespace rdm::posix_host {
namespace {

struct Exit {
  void (*fn)(void *);
  void *argument;
  Exit *next;
};

pthread_mutex_t exits_mutex = PTHREAD_MUTEX_INITIALIZER;
Exit *first_exit = nullptr;

void run_exits() {
  Exit *exit = first_exit;
  first_exit = nullptr;
  while (exit != nullptr) {
    Exit *next = exit->next;
    exit->fn(exit->argument);
    std::free(exit);
    exit = next;
  }
}

}  // namespace

host_crit *crit_create() {
  HostPtr<host_crit> section = host_new<host_crit>();
  if (section && pthread_mutex_init(&section->mutex, nullptr) != 0) section.reset();
  return section.release();
}

void crit_enter(host_crit *c) { pthread_mutex_lock(&c->mutex); }
void crit_exit(host_crit *c) { pthread_mutex_unlock(&c->mutex); }

void register_exit(void (*fn)(void *), void *argument) {
  // Use malloc, not the bound allocator: run_exits reads the list when the host may be gone.
  Exit *exit = static_cast<Exit *>(std::malloc(sizeof(Exit)));
  if (exit == nullptr) return;
  *exit = Exit{fn, argument, nullptr};
  pthread_mutex_lock(&exits_mutex);
  if (first_exit == nullptr) std::atexit(run_exits);
  Exit **link = &first_exit;
  while (*link != nullptr) link = &(*link)->next;
  *link = exit;
  pthread_mutex_unlock(&exits_mutex);
}

}  // namespace rdm::posix_host
