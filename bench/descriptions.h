// SPDX-License-Identifier: MIT
/// Generated descriptions.
#ifndef BENCH_DESCRIPTIONS_H
#define BENCH_DESCRIPTIONS_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace rdm::bench {

/// Description is an RD of about 2 KB with twelve attributes, in the order in which they are written.
struct Description {
  std::string url;
  std::vector<std::pair<std::string, std::string>> attributes;
};

/// description returns the RD of this number. Another edition has the same URL and another title.
Description description(std::size_t number, std::size_t edition = 0);

/// write_descriptions appends SOIF of `count` RDs to a file, numbered from `first` on.
void write_descriptions(const std::string &path, std::size_t first, std::size_t count, std::size_t edition = 0);

}  // namespace rdm::bench

#endif
