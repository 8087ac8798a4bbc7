// SPDX-License-Identifier: MIT
/// The documents of a directory.
#ifndef RDMGATHER_LISTING_H
#define RDMGATHER_LISTING_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rdm::gather {

/// Print tells by size and times, in nanoseconds since 1970, whether a file may have changed. That of times 0 matches
/// no file.
struct Print {
  int64_t size = 0, modified = 0, changed = 0;
  bool operator==(const Print &) const = default;
};
Print print_of(const struct stat &status);

struct Entry {
  std::string path;  // relative to the directory: the name of the document
  std::string file;  // to open: without symbolic links
  Print print;
};

/// Fault is a file or directory that could not be read: its path relative to the directory, and the reason.
struct Fault {
  std::string path;
  std::string reason;
};

struct Listing {
  std::string root;  // of the files of entries, without symbolic links
  std::vector<Entry> documents;
  std::vector<Fault> faults;
};

/// FileIdentity is device and inode.
using FileIdentity = std::pair<dev_t, ino_t>;

/// list_documents finds the regular files below a directory, sorted by path. Names that begin with a dot are left out,
/// and so are the files in `excluded`. Symbolic links are followed if they end within the directory; one to a directory
/// only if that does not contain the link, and no other such link is on the path, so that the listing is finite.
/// Throws a Failure if the directory itself cannot be read.
Listing list_documents(const std::string &directory, const std::vector<FileIdentity> &excluded);

/// is_within returns true if a file is below a directory. Both are paths without symbolic links.
bool is_within(std::string_view root, std::string_view file);

}  // namespace rdm::gather

#endif
