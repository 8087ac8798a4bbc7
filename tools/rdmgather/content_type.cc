// SPDX-License-Identifier: MIT
#include "tools/rdmgather/content_type.h"

#include "catalog/os/error.h"

namespace rdm::gather {

ContentTypes::ContentTypes() : magic_(magic_open(MAGIC_MIME_TYPE)) {
  if (!magic_) throw catalog::system_failure("magic_open");
  if (magic_load(magic_.get(), nullptr) != 0)
    throw catalog::Failure(std::string("cannot load the database of libmagic: ") + magic_error(magic_.get()));
}

std::string ContentTypes::type_of(std::string_view bytes) const {
  const char *type = magic_buffer(magic_.get(), bytes.data(), bytes.size());
  return type != nullptr ? type : "application/octet-stream";
}

}  // namespace rdm::gather
