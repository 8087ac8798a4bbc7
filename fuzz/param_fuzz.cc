/// Any text as a configuration file of name="value" pairs.

#include <vector>

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input = fuzz::text(data, size);
  const auto limit = static_cast<int>(2 + fuzz::take(input, 1));
  const fuzz::MemoryFile file(input);
  const file_guard fd(host_open_read(file.path().c_str()));
  const reader_ptr reader(host_buffer_open(fd.get(), 16));
  const pblock_ptr block(host_param_create(1));
  std::vector<char> line(static_cast<size_t>(limit));
  for (int number = 1, last = 0; last == 0; ++number) {
    last = host_getline(reader.get(), number, limit, line.data());
    const int pairs = last < 0 ? 0 : host_param_parse(line.data(), block.get());
    fuzz::require(pairs >= 0 && pairs < limit, "the number of pairs");
  }
  return 0;
}
