// SPDX-License-Identifier: MIT
/// Databases opened for reading only.
#ifndef DBA_READER_H
#define DBA_READER_H

#include "dba/db185.h"

namespace rdm {

/// open_reader opens an existing hash file for reading. `parameters` is null or a HASHINFO, of which only the hash
/// function is used. Returns a handle that its close operation releases, or null with errno set.
DB *open_reader(const char *path, const HASHINFO *parameters) noexcept;

/// library_may_open returns true if the library may open the file: it does not exist, or cannot be read (the library
/// then sets errno itself), or is a hash file with a sound header. Sets errno if it returns false.
bool library_may_open(const char *path, const HASHINFO *parameters) noexcept;

}  // namespace rdm

#endif
