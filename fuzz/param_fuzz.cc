// SPDX-License-Identifier: MIT
/// Reads any text as a configuration file of name="value" pairs, then finds and removes each.

#include <vector>

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"
#include "qxapi/records.h"

using namespace rdm;

namespace {

/// first_of returns the pair of this name that was added first.
const host_param *first_of(const pblock &block, const std::string &name) {
  const host_param *pair = block.first;
  while (pair != nullptr && pair->name != name) pair = pair->next;
  return pair;
}

bool has(const pblock &block, const host_param *wanted) {
  const host_param *pair = block.first;
  while (pair != nullptr && pair != wanted) pair = pair->next;
  return pair != nullptr;
}

/// remove_pairs removes pairs by the first name and by a later one in turn.
void remove_pairs(pblock &block) {
  for (size_t turn = 0; block.first != nullptr; ++turn) {
    const host_param *chosen = block.first;
    for (size_t i = 0; chosen->next != nullptr && i < turn % 7; ++i) chosen = chosen->next;
    const std::string name = chosen->name;
    const host_param *expected = first_of(block, name);
    const std::string value = expected->value;
    fuzz::require(host_param_find(name.c_str(), &block) == expected->value,
                  "host_param_find did not return the first value");
    const ParamPtr removed(host_param_find_entry(name.c_str(), &block, 1));
    fuzz::require(removed->value == value && !has(block, expected),
                  "host_param_find_entry did not remove the first pair");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input = fuzz::text(data, size);
  const auto limit = static_cast<int>(2 + fuzz::take(input, 1));
  const fuzz::MemoryFile file(input);
  const HostFileGuard fd(host_open_read(file.path().c_str()));
  const ReaderPtr reader(host_buffer_open(fd.get(), 16));
  const PblockPtr block(host_param_create(1));
  std::vector<char> line(static_cast<size_t>(limit));
  for (int number = 1, last = 0; last == 0; ++number) {
    last = host_getline(reader.get(), number, limit, line.data());
    const int pairs = last < 0 ? 0 : host_param_parse(line.data(), block.get());
    fuzz::require(pairs >= 0 && pairs < limit, "a line has an impossible number of pairs");
  }
  remove_pairs(*block);
  return 0;
}
