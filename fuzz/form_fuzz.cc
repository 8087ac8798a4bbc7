// SPDX-License-Identifier: MIT
/// Reads any text as the query of a GET and turns it into a message.

#include <libcs/cs.h>

#include "fuzz/fuzz.h"
#include "libcs/guard.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string query(fuzz::text(data, size));
  query = query.substr(0, query.find('\0'));
  const PblockPtr block(host_param_create(1));
  pblock_form2pblock(query.data(), static_cast<int32_t>(query.size()), block.get());
  const CsioPtr header = make_csio(), body = make_csio();
  const char *refusal = pblock_pblock2rdm(block.get(), header.get(), body.get());
  if (refusal != nullptr) {
    fuzz::require(header->length == 0 && body->length == 0, "a refused query left text in a buffer");
    return 0;
  }
  std::string text(header->length, '\0');
  csio_copy(header.get(), text.data(), static_cast<int32_t>(text.size()));
  const SoifPtr object = SoifReader(text).next();
  fuzz::require(object != nullptr && std::string_view(object->template_name) == "RDMHEADER",
                "an accepted query has no RDMHEADER");
  return 0;
}
