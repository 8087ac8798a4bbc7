/// The same bytes as SOIF text in a file and in memory. Both must give the same objects, but for the one that the end
/// of the input cuts within a value: in memory its missing bytes are made up, in a file it is lost.

#include "fuzz/fuzz.h"
#include "fuzz/print.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile bytes(fuzz::text(data, size));
  const stdio_ptr file = open_stdio(bytes.path().c_str());
  soif_reader from_file(file.get()), from_text(fuzz::text(data, size));
  while (!from_text.at_end()) {
    const soif_ptr one = from_file.next(), other = from_text.next();
    if (!one && other) {
      fuzz::require(from_text.at_end() && from_file.at_end(), "an object lost in the midst of a file");
      break;
    }
    fuzz::require(!one == !other, "an object that only a file has");
    if (one) fuzz::require(fuzz::same(*one, *other), "two readings of one object");
  }
  while (!from_file.at_end()) fuzz::require(from_file.next() == nullptr, "an object behind the last");
  return 0;
}
