// SPDX-License-Identifier: MIT
/// Finding the database that a word of the command line names.
#ifndef RDMCTL_TARGET_H
#define RDMCTL_TARGET_H

#include <string>

namespace rdm::rdmctl {

/// database_of returns the path of the database of the catalog service with the CSID `target` in the configuration at
/// the path `config`; or `target` itself, if it is not a CSID but a path. Links are followed. An empty `config` knows
/// no CSIDs. Throws a Failure if the configuration cannot be read, for a CSID that it does not have or without a
/// database, and, if there is a configuration, for a path without a file: that is probably a mistyped CSID.
std::string database_of(const std::string &target, const std::string &config);

}  // namespace rdm::rdmctl

#endif
