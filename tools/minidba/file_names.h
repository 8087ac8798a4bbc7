// SPDX-License-Identifier: MIT
/// The files that a command line names, held against each other and against those that belong to them.
#ifndef MINIDBA_FILE_NAMES_H
#define MINIDBA_FILE_NAMES_H

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// follow_links puts the file that a link leads to in the place of a database or index that is one: a rename would
/// replace the link, and the files beside the database would be others than those of who names the file itself. Throws
/// a Failure where a link leads nowhere.
void follow_links(Options &options);

/// check_files makes sure that no file is given two purposes: the later written would replace the other.
void check_files(const Options &options);

}  // namespace rdm::minidba

#endif
