// SPDX-License-Identifier: MIT
/// What the command line says.
#ifndef RDMCTL_OPTIONS_H
#define RDMCTL_OPTIONS_H

#include <string>
#include <vector>

#include "tools/common/program.h"

namespace rdm::rdmctl {

/// Options are the same record for all verbs; each reads the fields that concern it.
struct Options {
  std::string config;              // the service's configuration
  std::string csid;                // the catalog service that is meant
  std::string from;                // who delivers; empty when not given
  std::vector<std::string> files;  // "-" is standard input
  bool deletes = false;            // delete responses delete what they name
};

/// What the exit status says, besides tools::exit_failure after a Failure.
using tools::exit_done;
constexpr int exit_incomplete = 1;  // something was done, but not all was accepted

}  // namespace rdm::rdmctl

#endif
