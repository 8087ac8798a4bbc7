// SPDX-License-Identifier: MIT
/// Where tests find the sources and what was built of them. Only directories.cc is compiled with the names of the two
/// directories: all other objects are the same wherever a clone stands, and a compiler cache serves them to each.
#ifndef TESTS_SUPPORT_DIRECTORIES_H
#define TESTS_SUPPORT_DIRECTORIES_H

#include <string>
#include <string_view>

namespace rdm::support {

/// in_source returns the absolute path of a file of the source tree, in_build that of one of the build tree. Without a
/// path each returns the directory itself.
std::string in_source(std::string_view path = "");
std::string in_build(std::string_view path = "");

}  // namespace rdm::support

#endif
