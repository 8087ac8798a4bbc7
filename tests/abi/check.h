/* What a check needs that must hold in a program built without assertions too. */
#ifndef TESTS_ABI_CHECK_H
#define TESTS_ABI_CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                \
    }                                                                         \
  } while (0)

#endif
