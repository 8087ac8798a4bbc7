// SPDX-License-Identifier: MIT
/* Checks that hold in programs built with NDEBUG, too. */
#ifndef TESTS_ABI_CHECK_H
#define TESTS_ABI_CHECK_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                \
    }                                                                         \
  } while (0)

/* CHECK_TEXT compares texts and prints both if they differ. */
#define CHECK_TEXT(text, expected) check_text((text), (expected), __FILE__, __LINE__)

static inline void check_text(const char *text, const char *expected, const char *file, int line) {
  if (text != NULL && strcmp(text, expected) == 0) return;
  fprintf(stderr, "%s:%d: \"%s\", not \"%s\"\n", file, line, text == NULL ? "(null)" : text, expected);
  exit(1);
}

#endif
