// SPDX-License-Identifier: MIT
/// Prepared answers: the server, schema and taxonomy descriptions, which are sent byte for byte.
#ifndef HOSTS_RDMD_CHECK_DESCRIPTION_H
#define HOSTS_RDMD_CHECK_DESCRIPTION_H

#include "hosts/rdmd/check_lines.h"

namespace rdm::check {

/// check_description looks whether the report's file is a whole answer of the kind that `key` asks for, such as
/// "server-description": an RDMHEADER object with the key's RDM type, an empty line, and at least one object more
/// unless the header has an error message. Every byte count must fit: after a value its line ends, and an attribute or
/// the end of the object follows.
void check_description(const std::string &key, Report &report);

}  // namespace rdm::check

#endif
