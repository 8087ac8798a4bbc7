// SPDX-License-Identifier: MIT
/* Text, time, critical sections and exits of the host. */
#include <errno.h>

#include <qxapi/qxapi.h>

#include "check.h"

static void make_texts(void) {
  char text[32];
  CHECK(host_format(text, sizeof text, "%s-%d", "a", 7) == 3);
  CHECK_TEXT(text, "a-7");
  CHECK(host_format(text, 3, "%s", "cut") == 2);
  CHECK_TEXT(text, "cu");
  CHECK(host_itoa(INT64_MIN, text) == 20);
  CHECK_TEXT(text, "-9223372036854775808");
  strcpy(text, "a%20b%2");
  host_unescape(text);
  CHECK_TEXT(text, "a b%2");
  errno = EACCES;
  CHECK_TEXT(host_last_error_text(), "Permission denied");
}

static void tell_the_time(void) {
  const time_t billennium = 1000000000;
  char text[32];
  struct tm utc;
  CHECK(host_gmtime(&billennium, &utc) == &utc);
  CHECK(host_format_time(text, sizeof text, "%a %Y-%m-%d %H:%M:%S", &utc) == 23);
  CHECK_TEXT(text, "Sun 2001-09-09 01:46:40");
}

static void enter_a_section(void) {
  static host_crit *section; /* sections are never released */
  section = host_crit_create();
  CHECK(section != NULL);
  host_crit_enter(section);
  host_crit_exit(section);
  host_crit_enter(section); /* it was left */
  host_crit_exit(section);
  CHECK(host_thread_id() >= 0);
  CHECK(host_thread_id() == host_thread_id());
}

/* The last exit checks that both were called, in the order of registration, and only then lets the program succeed. */
static int exits = 0;

static void first_exit(void *argument) {
  CHECK(argument == &exits);
  CHECK(exits++ == 0);
}

static void last_exit(void *argument) {
  CHECK(argument == NULL);
  CHECK(exits++ == 1);
  _Exit(0);
}

int main(void) {
  make_texts();
  tell_the_time();
  enter_a_section();
  host_register_exit(first_exit, &exits);
  host_register_exit(last_exit, NULL);
  return 1; /* unless the last exit was called */
}
