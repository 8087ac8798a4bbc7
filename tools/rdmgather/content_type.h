// SPDX-License-Identifier: MIT
/// The content type of a document, by libmagic.
#ifndef RDMGATHER_CONTENT_TYPE_H
#define RDMGATHER_CONTENT_TYPE_H

#include <magic.h>

#include <string>
#include <string_view>

#include "qxapi/guard.h"

namespace rdm::gather {

/// ContentTypes recognises types. One thread uses it at a time.
class ContentTypes {
 public:
  /// ContentTypes loads the database of the system. Throws a Failure.
  ContentTypes();
  /// type_of returns the type of a document by its first bytes, such as "text/html".
  std::string type_of(std::string_view bytes) const;

 private:
  std::unique_ptr<magic_set, Deleter<magic_close>> magic_;
};

}  // namespace rdm::gather

#endif
