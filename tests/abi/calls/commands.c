// SPDX-License-Identifier: MIT
/* Commands run by the shell, and the search for a program in a list of directories. */
#include <libcs/cs.h>

#include "files.h"

static void run(void) {
  CHECK(cs_cli_run("echo text > said; exit 7", NULL) == 7);
  CHECK_TEXT(read_file("said"), "text\n");
  CHECK(cs_cli_run_no_pipe("mkdir -p directory && echo in it > directory/said", NULL) == 0);
  CHECK(cs_cli_run("test -f said -a ! -d directory", "directory") == 0);
  CHECK(cs_limited_cli_run("kill -TERM $$; exit 3", NULL, 0, 0, 1, 0) == 3); /* the signal is ignored */
}

static void search(void) {
  char *found = cs_search_path("said", "FOLDERS");
  CHECK_TEXT(found, "./said");
  host_free(found);
  found = cs_search_path("said", "NO_SUCH_VARIABLE");
  CHECK_TEXT(found, "said");
  host_free(found);
}

int main(void) {
  run();
  search();
  return 0;
}
