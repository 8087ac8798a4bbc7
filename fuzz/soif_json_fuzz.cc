// SPDX-License-Identifier: MIT
/// What is read as JSON must be the same again when it was written as SOIF, and as JSON.

#include "fuzz/fuzz.h"
#include "fuzz/soif_formats.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  for (const char *format : {"json", "ndjson"}) fuzz::check_format(format, fuzz::text(data, size), true);
  return 0;
}
