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

/// format_now writes the current time in UTC in the format of the log, or an empty text.
template <size_t size>
void format_now(char (&text)[size]) {
  const time_t now = std::time(nullptr);
  struct tm utc;
  *text = '\0';
  if (host_gmtime(&now, &utc) != nullptr) host_format_time(text, size, "%d/%h/%Y:%H:%M:%S -0000", &utc);
}

const char *or_dash(const char *text) { return text != nullptr ? text : "-"; }

}  // namespace

int rdm_log_add(const char *message, const char *second, const char *third, Session *sn, Request *rq) noexcept {
  char now[64];
  format_now(now);
  const char *client = sn->client != nullptr ? host_param_find("ip", sn->client) : nullptr;
  const HostText line = concatenate(
      {or_dash(client), " - - [", now, "] \"", or_dash(message), "\" ", or_dash(second), " ", or_dash(third), "\n"});
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
