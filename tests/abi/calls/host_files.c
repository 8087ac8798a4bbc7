// SPDX-License-Identifier: MIT
/* Files and buffered readers of the host. */
#include <qxapi/qxapi.h>

#include "check.h"

static const char path[] = "a file";

static void write_and_seek(void) {
  char bytes[16] = "";
  host_fd fd = host_open_write(path);
  CHECK(fd >= 0);
  CHECK(host_write(fd, "one\ntwo\n", 8) == 1);
  CHECK(host_seek(fd, 4, SEEK_SET) == 4);
  CHECK(host_read(fd, bytes, sizeof bytes) == 4);
  CHECK_TEXT(bytes, "two\n");
  CHECK(host_close(fd) == 0);
}

static void append_and_replace(void) {
  host_fd fd = host_open_append(path);
  CHECK(fd >= 0);
  CHECK(host_write_log(fd, "three\r\n", 7) == 1);
  CHECK(host_close(fd) == 0);
  fd = host_open_readwrite(path);
  CHECK(fd >= 0);
  CHECK(host_write(fd, "ONE", 3) == 1);
  CHECK(host_close(fd) == 0);
}

static void read_lines(void) {
  char line[6];
  host_fd fd = host_open_read(path);
  host_buffer *reader = host_buffer_open(fd, 5);
  CHECK(reader != NULL);
  CHECK(host_getline(reader, 1, sizeof line, line) == 0);
  CHECK_TEXT(line, "ONE");
  CHECK(host_getline(reader, 2, sizeof line, line) == 0);
  CHECK_TEXT(line, "two");
  CHECK(host_getline(reader, 3, sizeof line, line) == 0);
  CHECK_TEXT(line, "three");
  CHECK(host_getline(reader, 4, sizeof line, line) == 1);
  CHECK(host_buffer_send(reader, NULL) == -1); /* there is no client */
  host_buffer_close(reader);
  CHECK(host_close(fd) == 0);
}

static void remove_the_file(void) {
  struct stat status;
  CHECK(host_stat(path, &status) == 0);
  CHECK(status.st_size == 15);
  CHECK(host_unlink(path) == 0);
  CHECK(host_stat(path, &status) == -1);
  CHECK_TEXT(host_last_error_text(), "No such file or directory");
  CHECK(host_open_read(path) == -1);
}

int main(void) {
  write_and_seek();
  append_and_replace();
  read_lines();
  remove_the_file();
  return 0;
}
