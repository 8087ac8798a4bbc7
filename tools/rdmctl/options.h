/// What the command line says.
#ifndef RDMCTL_OPTIONS_H
#define RDMCTL_OPTIONS_H

#include <string>
#include <vector>

namespace rdmctl {

/// Options are the same record for all verbs; each reads the fields that concern it.
struct Options {
  std::string config;              // the service's configuration
  std::string csid;                // the catalog service that is meant
  std::string from;                // who delivers; empty when not given
  std::vector<std::string> files;  // "-" is standard input
};

/// What the program's exit status says.
constexpr int exit_done = 0;
constexpr int exit_incomplete = 1;  // the work was done, but not all was accepted
constexpr int exit_failure = 2;     // it could not be done

}  // namespace rdmctl

#endif
