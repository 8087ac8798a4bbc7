// SPDX-License-Identifier: MIT
/// The directory for temporary files.
///
/// Both procedures call getenv(), not secure_getenv(): in a privileged program the loader has removed TMPDIR, so a
/// value found here was set by the program from its configuration.
#ifndef QXAPI_TEMPORARY_DIRECTORY_H
#define QXAPI_TEMPORARY_DIRECTORY_H

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace rdm {

/// named_temporary_directory returns the directory of TMPDIR, usable or not, or P_tmpdir if TMPDIR is unset or empty:
/// for callers that report an unusable directory.
inline const char *named_temporary_directory() noexcept {
  const char *directory = std::getenv("TMPDIR");
  return directory != nullptr && *directory != '\0' ? directory : P_tmpdir;
}

/// temporary_directory returns the directory of TMPDIR, P_tmpdir if TMPDIR names no directory, or null if P_tmpdir is
/// not one either. The files of CSIO buffers are in it. `status` is stat or host_stat.
template <typename Stat>
const char *temporary_directory(Stat status) noexcept {
  for (const char *directory : {static_cast<const char *>(std::getenv("TMPDIR")), P_tmpdir}) {
    struct stat found;
    if (directory != nullptr && status(directory, &found) == 0 && S_ISDIR(found.st_mode)) return directory;
  }
  return nullptr;
}

}  // namespace rdm

#endif
