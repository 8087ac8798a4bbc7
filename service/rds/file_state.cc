// SPDX-License-Identifier: MIT
#include "service/rds/file_state.h"

#include <ctime>

#include <qxapi/qxapi.h>

namespace rdm {
namespace {

constexpr int64_t second = 1'000'000'000;  // nanoseconds

/// The longest step of file systems that count whole seconds (FAT counts two), and of all others (clock ticks).
constexpr int64_t coarse_step = 3 * second, fine_step = second / 10;

int64_t nanoseconds(const timespec &time) { return int64_t{time.tv_sec} * second + time.tv_nsec; }

int64_t current_time() noexcept {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

}  // namespace

int64_t (*file_clock)() noexcept = current_time;

bool read_state(const char *path, FileState &state) noexcept {
  struct stat status;
  if (host_stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  state = {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
  return true;
}

bool is_settled(const FileState &state) noexcept {
  const int64_t step = state.changed % second == 0 ? coarse_step : fine_step;
  return file_clock() - state.changed > step;
}

}  // namespace rdm
