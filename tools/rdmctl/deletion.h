// SPDX-License-Identifier: MIT
/// Delete responses as what they mean: deletions.
#ifndef RDMCTL_DELETION_H
#define RDMCTL_DELETION_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace rdm::rdmctl {

/// Named is what a delete response names.
struct Named {
  std::vector<std::string> urls;
  int64_t rejected = 0;  // objects that are malformed, or have no URL
};

/// named_in reads the file of a whole message: its objects' URLs or, where no object follows the header, a URL on each
/// line. What is rejected is said on `errors`, with the name of the submission.
Named named_in(const std::string &path, const std::string &name, std::ostream &errors);

/// delete_from removes descriptions by URL from a database, then drops what has expired, writes the index and lists
/// what is unclassified, as the service does after an import. Returns how many were removed. What is not there is said
/// on `errors`. Throws a Failure.
int64_t delete_from(const std::string &database, const std::vector<std::string> &urls, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
