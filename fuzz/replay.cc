// SPDX-License-Identifier: MIT
/// Runs a fuzzer's procedure on files, so that every build repeats earlier findings.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path &path) {
  if (!fs::is_directory(path)) return {path};
  return {fs::directory_iterator(path), fs::directory_iterator()};
}

void replay(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // A heap block of exactly this size, so that a sanitizer reports the first byte read past it.
  const std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char **argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i)
    for (const fs::path &path : files_of(argv[i])) {
      replay(path);
      ++count;
    }
  std::cout << count << " inputs replayed\n";
  return count == 0 ? 1 : 0;
}
