// SPDX-License-Identifier: MIT
/// Checks prepared answers: the server, schema and taxonomy descriptions, which are sent byte for byte.
#ifndef HOSTS_RDMD_CHECK_DESCRIPTION_H
#define HOSTS_RDMD_CHECK_DESCRIPTION_H

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

/// check_description checks that the report's file is a complete answer of the kind of `key`, such as
/// "server-description": an RDMHEADER object with the key's RDM type, an empty line, and at least one more object
/// unless the header has an error message. Every byte count must be right: the line ends after the value, and an
/// attribute or the end of the object follows.
void check_description(const std::string &key, Report &report);

/// check_description_text checks a text in the same way, in place of the report's file.
void check_description_text(const std::string &key, std::string_view text, Report &report);

}  // namespace rdm::check

#endif
