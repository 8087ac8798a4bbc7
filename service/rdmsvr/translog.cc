// SPDX-License-Identifier: MIT
#include <ctime>

#include "service/rdm.h"
#include "service/text.h"

using namespace rdm;

host_crit *rdm_log_crit = nullptr;
char logfile[1024];
host_fd logfd = -1;

namespace {

constexpr char pending_line[] = "rdm-log-message";

/// Stamp is a time in UTC and its text in the format of the log.
struct Stamp {
  struct tm utc;
  char text[64];
};

bool is_same_second(const struct tm &a, const struct tm &b) {
  return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_yday == b.tm_yday &&
         a.tm_year == b.tm_year;
}

/// text_of_now returns the current time, or an empty text. The text is valid until the thread's next call; within a
/// second it is formatted once.
const char *text_of_now() {
  static thread_local Stamp last{};
  const time_t now = std::time(nullptr);
  struct tm utc;
  if (host_gmtime(&now, &utc) == nullptr) return "";
  if (*last.text == '\0' || !is_same_second(utc, last.utc))
    host_format_time(last.text, sizeof last.text, "%d/%h/%Y:%H:%M:%S -0000", &utc);
  last.utc = utc;
  return last.text;
}

const char *or_dash(const char *text) { return text != nullptr ? text : "-"; }

}  // namespace

int rdm_log_add(const char *message, const char *second, const char *third, Session *sn, Request *rq) noexcept {
  const char *client = sn->client != nullptr ? host_param_find("ip", sn->client) : nullptr;
  const HostText line = concatenate({or_dash(client), " - - [", text_of_now(), "] \"", or_dash(message), "\" ",
                                     or_dash(second), " ", or_dash(third), "\n"});
  return line ? host_param_add(pending_line, line.get(), rq->vars) : -1;
}

int rdm_log(pblock *, Session *, Request *rq) noexcept {
  const char *line = host_param_find(pending_line, rq->vars);
  if (line == nullptr || *line == '\0') return 0;
  const CritGuard inside(rdm_log_crit);
  if (logfd != -1) host_write_log(logfd, line, static_cast<int32_t>(std::string_view(line).size()));
  return 0;
}

void rdm_log_terminate(void) noexcept {
  const CritGuard inside(rdm_log_crit);
  HostFileGuard(std::exchange(logfd, -1));
}
