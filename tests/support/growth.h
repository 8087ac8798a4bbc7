// SPDX-License-Identifier: MIT
/// Tests how the time of work grows with its size.
#ifndef TESTS_SUPPORT_GROWTH_H
#define TESTS_SUPPORT_GROWTH_H

#include <ctime>

namespace rdm::support {

/// cpu_time returns the CPU time of the calling thread for work of a size.
template <typename Work>
double cpu_time(const Work &work, int size) {
  timespec before{}, after{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
  work(size);
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
  const auto seconds = static_cast<double>(after.tv_sec - before.tv_sec);
  return seconds + static_cast<double>(after.tv_nsec - before.tv_nsec) * 1e-9;
}

/// grows_linearly returns true if 16 times the work takes about 16 times as long. The limit is far from that and
/// from the 256 times of quadratic growth. One of three trials within the limit is enough, because other load may
/// disturb the others.
template <typename Work>
bool grows_linearly(const Work &work, int size) {
  for (int trial = 0; trial < 3; ++trial)
    if (cpu_time(work, size * 16) < 60 * cpu_time(work, size)) return true;
  return false;
}

}  // namespace rdm::support

#endif
