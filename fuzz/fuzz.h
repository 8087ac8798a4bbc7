// SPDX-License-Identifier: MIT
/// Helpers of the fuzzers. A fuzzer is a procedure that accepts any bytes; a crash, a leak or a failed require is a
/// finding.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// LLVMFuzzerTestOneInput is the fuzzer's procedure, which the fuzzing engine calls by this name. It returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace rdm::fuzz {

inline std::string_view text(const uint8_t *data, size_t size) { return {reinterpret_cast<const char *>(data), size}; }

/// require aborts with a message if `holds` is false.
void require(bool holds, const char *message);

/// MemoryFile is a file in memory.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes);
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  ~MemoryFile();

  /// path returns a path that opens the file while the object lives.
  const std::string &path() const { return path_; }

 private:
  int file_;
  std::string path_;
};

/// TemporaryDirectory is a directory that is removed at the end of its scope.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  ~TemporaryDirectory();

  /// write creates or replaces a file and returns its path.
  std::string write(const std::string &name, std::string_view bytes) const;
  std::string path(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// take removes a number from the front of the input, or returns 0 if too few bytes are left.
uint64_t take(std::string_view &input, size_t bytes);

}  // namespace rdm::fuzz

#endif
