// SPDX-License-Identifier: MIT
#include "hosts/rdmd/descriptors.h"

#include <sys/resource.h>

#include <limits>
#include <stdexcept>
#include <string>

namespace rdm::rdmd {
namespace {

/// What a process without workers and clients opens.
constexpr std::size_t fixed = 48;
/// A worker has three sockets in the front, and during a reload there are two generations of workers.
constexpr std::size_t for_each_worker = 2 * 3;

}  // namespace

std::size_t allow_descriptors() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::numeric_limits<std::size_t>::max();
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

std::size_t descriptors_for(std::size_t connections) { return 2 * connections; }

std::size_t reserved_descriptors(const Settings &settings) {
  return fixed + for_each_worker * static_cast<std::size_t>(settings.workers);
}

void require_descriptors(const Settings &settings) {
  const std::size_t limit = allow_descriptors(), least = reserved_descriptors(settings) + descriptors_for(1);
  if (limit >= least) return;
  throw std::runtime_error("the limit of open files is " + std::to_string(limit) + ", but the server needs " +
                           std::to_string(least) + " with --workers " + std::to_string(settings.workers) +
                           "; raise it (ulimit -n, LimitNOFILE)");
}

}  // namespace rdm::rdmd
