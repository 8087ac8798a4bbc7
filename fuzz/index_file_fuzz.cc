// SPDX-License-Identifier: MIT
/// Reads any bytes as an index file. A valid one must be written as the same bytes.

#include "catalog/index_file.h"
#include "catalog/os/error.h"
#include "fuzz/fuzz.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  try {
    fuzz::require(catalog::encode(catalog::decode(bytes, "index")) == bytes, "decoding and encoding changed an index");
  } catch (const catalog::Failure &) {
    // Not an index.
  }
  return 0;
}
