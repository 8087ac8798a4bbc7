// SPDX-License-Identifier: MIT
/// How the time of some work grows with its size.
#ifndef TESTS_SUPPORT_GROWTH_H
#define TESTS_SUPPORT_GROWTH_H

#include <ctime>

namespace rdm::support {

/// cpu_time returns the processor time that work of a size takes in the calling thread.
template <typename Work>
double cpu_time(const Work &work, int size) {
  timespec before{}, after{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
  work(size);
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
  const auto seconds = static_cast<double>(after.tv_sec - before.tv_sec);
  return seconds + static_cast<double>(after.tv_nsec - before.tv_nsec) * 1e-9;
}

/// grows_with_its_size returns whether 16 times the work takes about 16 times as long. The limit is far from that and
/// from the 256 times of work that grows with the square of its size; one of three trials within it is enough, as a
/// machine that does other work may disturb the others.
template <typename Work>
bool grows_with_its_size(const Work &work, int size) {
  for (int trial = 0; trial < 3; ++trial)
    if (cpu_time(work, size * 16) < 60 * cpu_time(work, size)) return true;
  return false;
}

}  // namespace rdm::support

#endif
