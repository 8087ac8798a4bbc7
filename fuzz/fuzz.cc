// SPDX-License-Identifier: MIT
#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace rdm::fuzz {

void require(bool holds, const char *message) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", message);
  std::abort();
}

MemoryFile::MemoryFile(std::string_view bytes)
    : file_(::memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(file_)) {
  require(::write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
          "writing a file in memory failed");
}

MemoryFile::~MemoryFile() { ::close(file_); }

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "rdm-fuzz-XXXXXX").string()) {
  require(::mkdtemp(path_.data()) != nullptr, "mkdtemp failed");
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::write(const std::string &name, std::string_view bytes) const {
  std::ofstream file(path(name), std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  require(file.good(), "writing a temporary file failed");
  return path(name);
}

uint64_t take(std::string_view &input, size_t bytes) {
  if (input.size() < bytes) {
    input = {};
    return 0;
  }
  uint64_t number = 0;
  for (const char c : input.substr(0, bytes)) number = number << 8 | static_cast<unsigned char>(c);
  input.remove_prefix(bytes);
  return number;
}

}  // namespace rdm::fuzz
