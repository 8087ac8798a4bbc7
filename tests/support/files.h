// SPDX-License-Identifier: MIT
/// Temporary files of tests.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <string>

namespace rdm::support {

/// TemporaryDirectory is a new directory, removed with its contents at the end of its scope.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  ~TemporaryDirectory();

  std::string path(const std::string &name = "") const;
  /// write creates a file in the directory and returns its path.
  std::string write(const std::string &name, const std::string &text) const;

 private:
  std::string root_;
};

/// read_file returns the bytes of a file; it fails the test if it cannot be read.
std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &bytes);
bool file_exists(const std::string &path);

}  // namespace rdm::support

#endif
