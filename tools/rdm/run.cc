// SPDX-License-Identifier: MIT
#include "tools/rdm/run.h"

#include <ostream>

#include "qxapi/escaped.h"
#include "tools/rdm/error.h"
#include "tools/rdm/server.h"

namespace rdm::client {

int run(Verb verb, const Options &options, const Console &console) try {
  return verb(options, console);
} catch (const Refusal &refusal) {
  throw Failure(url_without_password(options.url) + " refuses: " + refusal.what());
} catch (const Distrust &distrust) {
  console.errors << "rdm: " << escaped(url_without_password(options.url) + ": " + distrust.what()) << '\n';
  return exit_distrust;
}

}  // namespace rdm::client
