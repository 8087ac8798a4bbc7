// SPDX-License-Identifier: MIT
/// Many small requests at once.
#ifndef BENCH_SPEED_REQUEST_LOAD_H
#define BENCH_SPEED_REQUEST_LOAD_H

#include <chrono>
#include <cstddef>
#include <string>

namespace rdm::bench {

/// ask_again_and_again keeps this many connections to a server, each with one request under way, for about this time.
/// Returns the number of answers. Throws std::runtime_error if one is not 200 or a connection ends.
std::size_t ask_again_and_again(int port, const std::string &target, std::size_t connections,
                                std::chrono::milliseconds time);

}  // namespace rdm::bench

#endif
