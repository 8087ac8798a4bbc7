// SPDX-License-Identifier: MIT
/* The diagnostic log. */
#include <libcs/log.h>

#include "files.h"

static const char path[] = "diagnostics";

/* after_stamp returns a line without its time stamp, which differs between runs. */
static const char *after_stamp(const char *line) {
  CHECK(line != NULL && *line == '[');
  line = strchr(line, ']');
  CHECK(line != NULL);
  return line + 1;
}

static void write_lines(void) {
  cslog_init(1, path);
  CHECK(_cslog_level == 1);
  CSLOG(CSLOG_WARNING, "abi", "%d lines\n", 2);
  cslog_set_level(0);
  CSLOG(CSLOG_WARNING, "abi", "silence\n");
  cslog_set_level(3);
  CHECK(_cslog_set_params(CSLOG_SOURCE, "directory/abi.c", 42) == host_thread_id());
  _cslog_do_print("%s\n", "here");
  cslog_terminate();
}

static void read_lines(void) {
  const char *line = after_stamp(read_file(path));
  CHECK(strstr(line, ": WARNING: 2 lines\n") != NULL);
  line = after_stamp(strchr(line, '\n') + 1);
  CHECK(strstr(line, ": (abi.c:42):\t here\n") != NULL);
  CHECK(strchr(line, '\n')[1] == '\0');
}

int main(void) {
  char *line = cslog_linestr("a\tb\nc");
  CHECK_TEXT(line, "a b c");
  host_free(line);
  CHECK(_cslog_level == 0);
  CHECK(_cslog_module == 1);
  write_file(path, "");
  write_lines();
  read_lines();
  return 0;
}
