// SPDX-License-Identifier: MIT
/// Deleting the descriptions that an rd-delete-response names.
#ifndef RDMCTL_DELETION_H
#define RDMCTL_DELETION_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace rdm::rdmctl {

/// Named is the contents of an rd-delete-response.
struct Named {
  std::vector<std::string> urls;
  int64_t rejected = 0;  // objects that are malformed or have no URL
};

/// named_in reads the file of a whole message: the URLs of its objects or, if no object follows the header, a URL on
/// each line. It reports rejected objects on `errors`, with the name of the submission. Throws a Failure if the file
/// cannot be read.
Named named_in(const std::string &path, const std::string &name, std::ostream &errors);

/// delete_from deletes descriptions by URL. It then deletes expired descriptions, writes the index and lists
/// unclassified descriptions, as the service does after an import. It reports URLs without a description on `errors`.
/// Returns how many descriptions of `urls` were deleted. Throws a Failure.
int64_t delete_from(const std::string &database, const std::vector<std::string> &urls, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
