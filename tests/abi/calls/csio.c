// SPDX-License-Identifier: MIT
/* The CSIO buffer in memory, in a file and in both. */
#include <libcs/adt.h>

#include "files.h"

static void check_bytes(csio *io, const char *expected) {
  char bytes[32] = "";
  csio_rewind(io);
  CHECK(csio_copy(io, bytes, sizeof bytes - 1) == (int32_t)strlen(expected));
  CHECK_TEXT(bytes, expected);
  CHECK(csio_copy(io, bytes, 1) == 0);
}

static void stay_in_memory(void) {
  csio *io = NULL;
  CHECK(csio_create(&io) == io && io != NULL);
  csio_increase(io, 100);
  CHECK(io->flags == CSIO_MEMORY && io->capacity >= 100);
  CHECK(csio_append(io, "memory", 6) == 6);
  CHECK(csio_finish(io) == 0);
  CHECK(csio_append(io, "more", 4) == 0);
  check_bytes(io, "memory");
  csio_reset(io);
  CHECK(io->length == 0 && io->finished == 0);
  CHECK(csio_append(io, "again", 5) == 5);
  check_bytes(io, "again");
  csio_destroy(io);
}

static void move_to_a_file(void) {
  char name[4096];
  struct stat status;
  csio *io = csio_create(&io);
  CHECK(csio_append(io, "in a file", 9) == 9);
  CHECK(csio_convert2file(io) == 0);
  CHECK(io->flags == CSIO_FILE && io->filename != NULL);
  CHECK(csio_append(io, " now", 4) == 4);
  CHECK(csio_finish(io) == 0);
  check_bytes(io, "in a file now");
  strcpy(name, io->filename);
  CHECK_TEXT(read_file(name), "in a file now");
  csio_destroy(io);
  CHECK(host_stat(name, &status) == -1);
}

static void be_in_both(void) {
  csio *io = csio_create(&io);
  CHECK(csio_append(io, "both", 4) == 4);
  CHECK(csio_dup2file(io) == 0);
  CHECK(io->flags == (CSIO_MEMORY | CSIO_FILE));
  CHECK(csio_releasefd(io) == 0);
  CHECK(io->fd == -1);
  CHECK_TEXT(read_file(io->filename), "both");
  CHECK(csio_dup2file(io) == (CSIO_MEMORY | CSIO_FILE));
  check_bytes(io, "both");
  csio_destroy(io);
}

int main(void) {
  stay_in_memory();
  move_to_a_file();
  be_in_both();
  return 0;
}
