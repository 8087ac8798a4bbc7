/// Any bytes as an index file. What is one is written as the same bytes again.

#include "fuzz/fuzz.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/index_file.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  try {
    fuzz::require(minidba::encode(minidba::decode(bytes, "index")) == bytes, "an index that is written again");
  } catch (const minidba::Failure &) {
    // Not an index.
  }
  return 0;
}
