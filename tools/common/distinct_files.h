// SPDX-License-Identifier: MIT
/// Files of a command line that must not be the same.
#ifndef TOOLS_COMMON_DISTINCT_FILES_H
#define TOOLS_COMMON_DISTINCT_FILES_H

#include <string>
#include <vector>

namespace rdm::tools {

/// NamedFile is a file with what it is for, such as "index" or "--output".
struct NamedFile {
  std::string purpose;
  std::string path;  // empty or "-" for none
};

/// require_distinct throws a Failure that names both purposes if two files are the same: writing one would destroy the
/// other. It includes the new file, PATH.new, with which a file is replaced. Files are the same by device and inode, or
/// by directory and name if one does not exist yet.
void require_distinct(const std::vector<NamedFile> &files);

}  // namespace rdm::tools

#endif
