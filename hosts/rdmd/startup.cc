// SPDX-License-Identifier: MIT
#include "hosts/rdmd/startup.h"

#include <cstdio>

#include "hosts/rdmd/check/check.h"

namespace rdm::rdmd {

std::string addresses_of(const std::vector<ListeningSocket> &sockets) {
  std::string text;
  for (const ListeningSocket &socket : sockets)
    text += (text.empty() ? "" : ", ") + socket.address + (socket.tls ? " (TLS)" : "");
  return text;
}

void announce(const std::string &addresses, ErrorLog &errors) {
  const std::string text = "listening on " + addresses;
  if (errors.to_file()) errors.info(text);
  std::fprintf(stderr, "rdmd: %s\n", text.c_str());
}

void log_mistakes(const std::string &config, ErrorLog &errors) {
  for (const check::Finding &finding : check::check_syntax(config)) {
    const std::string text = check::describe(finding);
    finding.severity == check::Severity::error ? errors.error(text) : errors.warn(text);
  }
}

}  // namespace rdm::rdmd
