// SPDX-License-Identifier: MIT
/// What is read as a table must be the same again when it was written as SOIF, and as a table. Reading a table drops
/// nothing, but writing one arranges the attributes in the order of the columns.

#include "fuzz/fuzz.h"
#include "fuzz/soif_formats.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  for (const char *format : {"csv", "tsv"}) fuzz::check_format(format, fuzz::text(data, size), false);
  return 0;
}
