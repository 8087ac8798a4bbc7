// SPDX-License-Identifier: MIT
/* A host in C that loads the plug-in and finds its four entries by name. */
#include <dlfcn.h>

#include <qxapi/qxapi.h>

#include "check.h"

typedef int (*entry)(pblock *pb, Session *sn, Request *rq);

static entry find(void *library, const char *name) {
  union {
    void *object;
    entry function;
  } found;
  found.object = dlsym(library, name);
  if (found.object == NULL) fprintf(stderr, "%s is missing\n", name);
  CHECK(found.object != NULL);
  return found.function;
}

int main(int argc, char **argv) {
  pblock *parameters = host_param_create(1);
  void *library;
  entry init;
  CHECK(argc == 2);
  library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) fprintf(stderr, "%s\n", dlerror());
  CHECK(library != NULL);
  init = find(library, "rdm_init");
  find(library, "rdm_service");
  find(library, "rdm_type");
  find(library, "rdm_log");
  CHECK(init(parameters, NULL, NULL) == HOST_ABORT); /* there is no "config" */
  host_param_free(parameters);
  CHECK(dlclose(library) == 0);
  return 0;
}
