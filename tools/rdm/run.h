// SPDX-License-Identifier: MIT
/// Running a verb, and the exit status of its errors.
#ifndef TOOLS_RDM_RUN_H
#define TOOLS_RDM_RUN_H

#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {

/// run calls a verb and returns its exit status. For a Distrust it writes the reason to the console and returns
/// exit_distrust; a Refusal becomes a Failure that quotes the server. Other exceptions are passed on.
int run(Verb verb, const Options &options, const Console &console);

}  // namespace rdm::client

#endif
