// SPDX-License-Identifier: MIT
/// Prepared answers from plain text: server, schema and taxonomy descriptions without byte counts.
///
/// The text, line by line:
///   # ...                                 a comment; so is an empty line
///   @TEMPLATE URL                         begins an object: @SERVER, @SCHEMA, @TAXONOMY or @CLASSIFICATION
///   NAME: VALUE                           an attribute
///     MORE                                an indented line continues the value on a new line; "." alone is an empty
///     one
///   NAME = TABLE.COLUMN [TYPE] [internal] of a schema: the column of an attribute
///   - ID: DESCRIPTION                     of a taxonomy: a class, indented by two more blanks than its parent
#ifndef RDMCTL_PLAIN_DESCRIPTION_H
#define RDMCTL_PLAIN_DESCRIPTION_H

#include <iosfwd>
#include <string>

namespace rdm::rdmctl {

/// PlainDescription is what to make of a plain text.
struct PlainDescription {
  std::string kind;  // server, schema or taxonomy
  std::string csid;  // for the header; empty for none
  std::string name;  // of the text, for messages
};

/// description_of returns the prepared answer: the RDM header and the objects, with byte counts. Throws a Failure that
/// names the line which is not of the form above.
std::string description_of(std::istream &text, const PlainDescription &wanted);

}  // namespace rdm::rdmctl

#endif
