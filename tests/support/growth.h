/// How the time of some work grows with its size.
#ifndef TESTS_SUPPORT_GROWTH_H
#define TESTS_SUPPORT_GROWTH_H

#include <algorithm>
#include <ctime>
#include <limits>

namespace support {

/// cpu_time returns the processor time that work takes in the calling thread, the shortest of three.
template <typename Work>
double cpu_time(const Work &work, int size) {
  double shortest = std::numeric_limits<double>::max();
  for (int i = 0; i < 3; ++i) {
    timespec before{}, after{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    work(size);
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    const auto seconds = static_cast<double>(after.tv_sec - before.tv_sec);
    shortest = std::min(shortest, seconds + static_cast<double>(after.tv_nsec - before.tv_nsec) * 1e-9);
  }
  return shortest;
}

/// grows_with_its_size returns whether 16 times the work takes about 16 times as long. The limit is far from that and
/// from the 256 times of work that grows with the square of its size.
template <typename Work>
bool grows_with_its_size(const Work &work, int size) {
  return cpu_time(work, size * 16) < 60 * cpu_time(work, size);
}

}  // namespace support

#endif
