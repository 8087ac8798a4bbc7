// SPDX-License-Identifier: MIT
#include "speed/allocation_count.h"

#include <cstring>

#include "support/directories.h"

namespace rdm::bench {
namespace {

std::string shim() { return support::in_build("bench/liballocation_shim.so"); }

}  // namespace

bool AllocationCount::possible() { return support::file_exists(shim()); }

AllocationCount::AllocationCount()
    : file_(directory_.write("count", std::string(sizeof(std::uint64_t), '\0'))),
      name_("ALLOCATION_COUNT", file_.c_str()),
      library_("LD_PRELOAD", shim().c_str()) {}

std::uint64_t AllocationCount::value() const {
  std::uint64_t count = 0;
  const std::string bytes = support::read_file(file_);
  std::memcpy(&count, bytes.data(), sizeof count);
  return count;
}

}  // namespace rdm::bench
