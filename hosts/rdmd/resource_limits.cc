// SPDX-License-Identifier: MIT
#include "hosts/rdmd/resource_limits.h"

#include <pthread.h>
#include <sys/resource.h>

#include <limits>
#include <stdexcept>
#include <string>

namespace rdm::rdmd {
namespace {

/// What a process without workers and clients opens.
constexpr std::size_t fixed = 48;
/// A worker has three sockets in the front, and during a reload there are two generations of workers.
constexpr std::size_t for_each_worker = 6;

/// Address space with which a thousand clients were served: with less, the C library ends a process that it cannot
/// allocate memory for. Each thread takes a stack and, from the allocator, an arena.
constexpr std::size_t fixed_address_space = std::size_t{48} << 20;
constexpr std::size_t arena_address_space = std::size_t{4} << 20;

}  // namespace

std::size_t allow_descriptors() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::numeric_limits<std::size_t>::max();
  const struct rlimit raised = {limit.rlim_max, limit.rlim_max};
  // Fails if the hard limit is above the system's, fs.nr_open.
  return ::setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

std::size_t descriptors_for(std::size_t connections) { return 2 * connections; }

std::size_t reserved_descriptors(const Settings &settings) {
  return fixed + for_each_worker * static_cast<std::size_t>(settings.workers);
}

namespace {

void require_descriptors(const Settings &settings) {
  const std::size_t limit = allow_descriptors(), least = reserved_descriptors(settings) + descriptors_for(1);
  if (limit >= least) return;
  throw std::runtime_error("the limit of open files is " + std::to_string(limit) + ", but the server needs " +
                           std::to_string(least) + " with --workers " + std::to_string(settings.workers) +
                           "; raise it (ulimit -n, LimitNOFILE)");
}

/// stack_size returns the address space that the stack of a thread takes, which follows from the limit of stacks.
std::size_t stack_size() {
  pthread_attr_t attributes;
  std::size_t size = 0;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_getstacksize(&attributes, &size);
  ::pthread_attr_destroy(&attributes);
  return size;
}

void require_address_space(const Settings &settings) {
  struct rlimit limit;
  const std::size_t for_each_thread = stack_size() + arena_address_space;
  const std::size_t least = fixed_address_space + static_cast<std::size_t>(settings.threads) * for_each_thread;
  if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur >= least) return;
  throw std::runtime_error("the limit of address space is " + std::to_string(limit.rlim_cur / 1024) +
                           " KiB, but the server needs " + std::to_string(least / 1024) + " with --threads " +
                           std::to_string(settings.threads) + "; raise it (ulimit -v, LimitAS)");
}

}  // namespace

void require_limits(const Settings &settings) {
  require_descriptors(settings);
  require_address_space(settings);
}

}  // namespace rdm::rdmd
