// SPDX-License-Identifier: MIT
/// The directories of the sources and of the build. Only directories.cc is compiled with their names, so that all other
/// objects are the same in every clone and a compiler cache can share them.
#ifndef TESTS_SUPPORT_DIRECTORIES_H
#define TESTS_SUPPORT_DIRECTORIES_H

#include <string>
#include <string_view>

namespace rdm::support {

/// in_source returns the absolute path of a file in the source tree, in_build in the build tree; without a path, the
/// directory itself. The variable RDM_TESTED_BUILD names another build tree, whose programs the tests then start.
std::string in_source(std::string_view path = "");
std::string in_build(std::string_view path = "");

}  // namespace rdm::support

#endif
