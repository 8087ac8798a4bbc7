/// What was parsed and printed once is parsed and printed again to the same bytes.

#include "fuzz/fuzz.h"
#include "libcs/guard.h"

namespace {

int append(void *text, const void *bytes, int32_t length) {
  static_cast<std::string *>(text)->append(static_cast<const char *>(bytes), static_cast<size_t>(length));
  return length;
}

std::string print(const SOIF *object) {
  std::string text;
  soif_writer(append, &text).print(object);
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  soif_reader reader(fuzz::text(data, size));
  while (!reader.at_end()) {
    const soif_ptr object = reader.next();
    if (!object) continue;
    const std::string once = print(object.get());
    const soif_ptr again = soif_reader(once).next();
    fuzz::require(again != nullptr && print(again.get()) == once, "print and parse");
  }
  return 0;
}
