// SPDX-License-Identifier: MIT
#include "tools/rdmctl/output.h"

#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <system_error>

#include "qxapi/escaped.h"

namespace rdm::rdmctl {

void say(std::ostream &errors, const std::string &text) { errors << "rdmctl: " << escaped(text) << '\n'; }

int show_change(std::ostream &out, std::ostream &errors, int status, const std::function<void()> &show) {
  try {
    show();
    out.flush();
    return status;
  } catch (const std::ios::failure &) {
    const int error = errno;
    if (error == EPIPE) throw;
    out.exceptions(std::ios::goodbit);  // the last flush of the program will fail too
    say(errors,
        "the catalog is changed, but standard output cannot be written: " + std::generic_category().message(error));
    return exit_incomplete;
  }
}

std::string text_of(const Json &json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string iso_time(time_t time) {
  struct tm utc;
  char text[32] = "";
  if (::gmtime_r(&time, &utc) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

bool shows_progress(const Options &options) { return !options.quiet && ::isatty(STDERR_FILENO) != 0; }

catalog::ProgressCallback shown_by(tools::Progress &progress) {
  return [&progress](int64_t bytes, int64_t total) {
    progress.expect(total);
    progress.advance(0, bytes);
  };
}

}  // namespace rdm::rdmctl
