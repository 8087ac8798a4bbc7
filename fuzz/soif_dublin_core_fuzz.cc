// SPDX-License-Identifier: MIT
/// What is read as Dublin Core must be the same again when it was written as SOIF. A document that was written and read
/// must stay the same from then on.

#include "fuzz/fuzz.h"
#include "fuzz/soif_formats.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::check_format("dc-xml", fuzz::text(data, size), false);
  fuzz::check_read("oai-dc", fuzz::text(data, size));
  return 0;
}
