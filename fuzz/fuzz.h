// SPDX-License-Identifier: MIT
/// What the fuzzers share. A fuzzer is a procedure that takes any bytes; it must end without a crash, a leak or a
/// broken require.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// LLVMFuzzerTestOneInput is the procedure of a fuzzer, under the name by which the fuzzing engine calls it. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace rdm::fuzz {

inline std::string_view text(const uint8_t *data, size_t size) { return {reinterpret_cast<const char *>(data), size}; }

/// require ends the process with a message when `holds` is false: the input is a finding.
void require(bool holds, const char *message);

/// MemoryFile is a file without a disk behind it.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes);
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  ~MemoryFile();

  /// path is where the file can be opened while the object lives.
  const std::string &path() const { return path_; }

 private:
  int file_;
  std::string path_;
};

/// TemporaryDirectory is a temporary directory that goes with the process.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  ~TemporaryDirectory();

  /// write makes a file, or replaces its contents, and returns its path.
  std::string write(const std::string &name, std::string_view bytes) const;
  std::string path(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// take splits a number off the front of the input; 0 when too little is left.
uint64_t take(std::string_view &input, size_t bytes);

}  // namespace rdm::fuzz

#endif
