// SPDX-License-Identifier: MIT
/* Times as text. The program runs in UTC. */
#include <libcs/cs.h>

#include "check.h"

static const time_t billennium = 1000000000;

static void print(void) {
  char text[32];
  CHECK(cs_time2str(billennium, text, sizeof text) == 29);
  CHECK_TEXT(text, "Sun, 09 Sep 2001 01:46:40 GMT");
  CHECK(cs_time2str_simple_dateonly(billennium, text, sizeof text) == 8);
  CHECK_TEXT(text, "09/09/01");
  CHECK(cs_time2str_simple_datetimeonly(billennium, text, sizeof text) == 17);
  CHECK_TEXT(text, "09/09/01 01:46:40");
  CHECK(cs_time2informix(billennium, text, sizeof text) == 19);
  CHECK_TEXT(text, "2001-09-09 01:46:40");
  CHECK(cs_time2str(billennium, text, 8) == 0);
  CHECK_TEXT(text, "");
}

static void parse(void) {
  time_t time = 0;
  CHECK(cs_str2time("Sun, 09 Sep 2001 01:46:40 GMT", &time) == billennium);
  CHECK(time == billennium);
  CHECK(ZAN_ParseTimeString("9 Sep 2001 3:46:40 +0200", 1) == billennium);
  CHECK(ZAN_ParseTimeString("9 Sep 2001 1:46:40", 0) == billennium);
  CHECK(ZAN_ParseTimeString("no date", 1) == 0);
  CHECK(ZAN_LocalZoneOffset() == 0);
}

int main(void) {
  print();
  parse();
  return 0;
}
