// SPDX-License-Identifier: MIT
/* Writing and reading files. */
#ifndef TESTS_ABI_CALLS_FILES_H
#define TESTS_ABI_CALLS_FILES_H

#include "check.h"

static inline void write_file(const char *path, const char *text) {
  FILE *file = fopen(path, "w");
  CHECK(file != NULL);
  CHECK(fputs(text, file) >= 0);
  CHECK(fclose(file) == 0);
}

/* read_file returns the first 8191 bytes of a file, valid until the next call. */
static inline const char *read_file(const char *path) {
  static char text[8192];
  FILE *file = fopen(path, "r");
  CHECK(file != NULL);
  text[fread(text, 1, sizeof text - 1, file)] = '\0';
  CHECK(fclose(file) == 0);
  return text;
}

#endif
