// SPDX-License-Identifier: MIT
/// Checks of the file names on a command line.
#ifndef MINIDBA_FILE_NAMES_H
#define MINIDBA_FILE_NAMES_H

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// follow_links replaces the path of a database or index that is a symbolic link by the path of its target. Otherwise a
/// rename would replace the link, and lock and URL map would belong to another path. Throws a Failure for a dangling
/// link.
void follow_links(Options &options);

/// check_files throws a Failure if one file has two purposes, for example as database and export: writing one would
/// destroy the other. It includes the files that minidba writes beside the database.
void check_files(const Options &options);

}  // namespace rdm::minidba

#endif
