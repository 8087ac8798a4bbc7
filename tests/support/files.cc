// SPDX-License-Identifier: MIT
#include "support/files.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace rdm::support {
namespace {

/// Files of tests have the modes that most systems give them, whatever the umask of the caller.
[[maybe_unused]] const mode_t umask_of_caller = ::umask(022);

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (fs::temp_directory_path() / "rdm-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no temporary directory " << pattern;
  root_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string TemporaryDirectory::path(const std::string &name) const {
  return name.empty() ? root_ : (fs::path(root_) / name).string();
}

std::string TemporaryDirectory::write(const std::string &name, const std::string &text) const {
  write_file(path(name), text);
  return path(name);
}

std::string read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) ADD_FAILURE() << "cannot read " << path;
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

void write_file(const std::string &path, const std::string &bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  file.close();
  if (!file) ADD_FAILURE() << "cannot write " << path;
}

bool file_exists(const std::string &path) { return fs::exists(path); }

}  // namespace rdm::support
