// SPDX-License-Identifier: MIT
/// The verbs of rdm. Each returns the exit status. They throw a Failure for local errors, a Refusal if the server
/// refuses, and a Distrust if it cannot be reached or its answer not be trusted; then nothing has changed.
#ifndef TOOLS_RDM_VERBS_VERBS_H
#define TOOLS_RDM_VERBS_VERBS_H

#include "tools/rdm/options.h"

namespace rdm::client {

constexpr int exit_done = 0;
constexpr int exit_partly = 1;    // done with rejects, or not all was found
constexpr int exit_distrust = 3;  // the server could not be reached, or its answer not be trusted

using Verb = int (*)(const Options &options, const Console &console);

/// status prints what the server says of itself.
int status(const Options &options, const Console &console);
/// describe prints the server, schema or taxonomy description, without the header of the message.
int describe(const Options &options, const Console &console);
/// get prints descriptions by their URLs.
int get(const Options &options, const Console &console);
/// harvest prints all descriptions, or those that have changed.
int harvest(const Options &options, const Console &console);
/// mirror makes a database or a directory equal to a catalog, and prints the URLs of the descriptions that are gone.
int mirror(const Options &options, const Console &console);

}  // namespace rdm::client

#endif
