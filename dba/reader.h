// SPDX-License-Identifier: MIT
/// Databases open for reading only.
#ifndef DBA_READER_H
#define DBA_READER_H

#include "dba/db185.h"

namespace rdm {

/// open_reader opens an existing hash file for reading; `parameters` null or a HASHINFO, of which the hash function is
/// used. Returns a handle that its close operation releases, or null with errno set.
DB *open_reader(const char *path, const HASHINFO *parameters) noexcept;

/// can_be_opened says whether the library may see the file: there is none, or it cannot be read (which the library
/// reports in its own way), or it is a hash file with a sound header. Sets errno when it returns false.
bool can_be_opened(const char *path, const HASHINFO *parameters) noexcept;

}  // namespace rdm

#endif
