// SPDX-License-Identifier: MIT
#include "hosts/rdmd/startup.h"

#include <cstdio>

#include "hosts/rdmd/check/check.h"

namespace rdm::rdmd {
namespace {

void say(const std::string &text, ErrorLog &errors) {
  if (errors.to_file()) errors.info(text);
  std::fprintf(stderr, "rdmd: %s\n", text.c_str());
}

}  // namespace

std::string addresses_of(const std::vector<ListeningSocket> &sockets, bool admin) {
  std::string text;
  for (const ListeningSocket &socket : sockets)
    if (socket.admin == admin) text += (text.empty() ? "" : ", ") + socket.address + (socket.tls ? " (TLS)" : "");
  return text;
}

void announce(const std::string &addresses, const std::string &admin, ErrorLog &errors) {
  if (!admin.empty()) say("administration on " + admin, errors);
  say("listening on " + addresses, errors);
}

void log_mistakes(const std::string &config, ErrorLog &errors) {
  for (const check::Finding &finding : check::check_syntax(config)) {
    const std::string text = check::describe(finding);
    finding.severity == check::Severity::error ? errors.error(text) : errors.warn(text);
  }
}

}  // namespace rdm::rdmd
