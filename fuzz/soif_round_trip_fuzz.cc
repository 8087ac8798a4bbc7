/// What was parsed and printed once is parsed and printed again to the same bytes.

#include "fuzz/fuzz.h"
#include "fuzz/print.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  soif_reader reader(fuzz::text(data, size));
  while (!reader.at_end()) {
    const soif_ptr object = reader.next();
    if (!object) continue;
    const std::string once = fuzz::print(object.get());
    const soif_ptr again = soif_reader(once).next();
    fuzz::require(again != nullptr && fuzz::print(again.get()) == once, "print and parse");
  }
  return 0;
}
