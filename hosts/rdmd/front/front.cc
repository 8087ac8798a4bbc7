// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/front.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/server.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/standard_stream.h"

namespace rdm::rdmd {

int run_front(const Settings &settings, std::vector<ListeningSocket> sockets, TlsContextPtr tls,
              HostFileGuard control) {
  StandardStream standard_error(stderr, STDERR_FILENO);
  ErrorLog errors(settings.error_log);
  try {
    const auto dropped = [&errors](std::size_t lines) { return errors.dropped("the access log", lines); };
    StandardStream output(stdout, STDOUT_FILENO, dropped);
    AccessLog access(settings.access_log, dropped, settings.access_json ? AccessFormat::json : AccessFormat::combined);
    Server(settings, std::move(control), errors, access, std::move(sockets), std::move(tls)).run();
    return EXIT_SUCCESS;
  } catch (const std::exception &error) {
    errors.error(error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace rdm::rdmd
