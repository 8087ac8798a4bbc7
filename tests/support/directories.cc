// SPDX-License-Identifier: MIT
#include "support/directories.h"

#include <cstdlib>

namespace rdm::support {
namespace {

std::string join(std::string directory, std::string_view path) {
  return path.empty() ? directory : directory.append("/").append(path);
}

}  // namespace

std::string in_source(std::string_view path) { return join(SOURCE_DIR, path); }
std::string in_build(std::string_view path) {
  const char *other = std::getenv("RDM_TESTED_BUILD");
  return join(other != nullptr ? other : BINARY_DIR, path);
}

}  // namespace rdm::support
