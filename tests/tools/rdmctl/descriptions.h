// SPDX-License-Identifier: MIT
/// Descriptions, and running the program on them.
#ifndef TESTS_TOOLS_RDMCTL_DESCRIPTIONS_H
#define TESTS_TOOLS_RDMCTL_DESCRIPTIONS_H

#include <string>
#include <vector>

#include "catalog/catalog_files.h"
#include "tools/rdmctl/service_files.h"

namespace rdm {

inline const std::string past = "Thu, 01 Jan 1998 00:00:00 GMT";

/// described returns the descriptions `from` to `to`.
inline std::string described(int from, int to, const std::string &title = "T", const std::string &expires = "never") {
  std::string stream;
  for (int i = from; i <= to; ++i) stream += rd(url(i), {{"rd-expires", expires}, {"title", title}});
  return stream;
}

inline support::Finished rdmctl(std::vector<std::string> words, const std::string &input = "") {
  words.insert(words.begin(), program);
  return support::run(words, input);
}

/// verdict_on returns what minidba verify says about a database and its index.
inline std::string verdict_on(const CatalogFiles &catalog) { return support::run(catalog.command({"verify"})).out; }

}  // namespace rdm

#endif
