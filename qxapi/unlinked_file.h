// SPDX-License-Identifier: MIT
/// Temporary files without a name, for programs.
#ifndef QXAPI_UNLINKED_FILE_H
#define QXAPI_UNLINKED_FILE_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "qxapi/guard.h"
#include "qxapi/uninterrupted.h"

namespace rdm {

/// open_unlinked makes an empty file without a name in a directory: with O_TMPFILE, or, on file systems without it,
/// with a name of `prefix` and six characters that is removed at once. On failure the guard is empty, and errno says
/// why.
inline HostFileGuard open_unlinked(const std::string &directory, const std::string &prefix) {
  constexpr int flags = O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC;
  HostFileGuard file(uninterrupted([&] { return ::open(directory.c_str(), flags, 0600); }));
  if (file) return file;
  std::string name = directory + "/" + prefix + "XXXXXX";
  file = HostFileGuard(::mkostemp(name.data(), O_CLOEXEC));
  if (file) ::unlink(name.c_str());
  return file;
}

}  // namespace rdm

#endif
