// SPDX-License-Identifier: MIT
/// A progress line on a terminal.
#ifndef MINIDBA_OUTPUT_PROGRESS_H
#define MINIDBA_OUTPUT_PROGRESS_H

#include <cstdint>
#include <functional>
#include <string>

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Progress shows a line on standard error after the first second, and updates it at most five times a second: records
/// and bytes done, bytes a second and, if the total is known, the time left. The destructor clears the line.
class Progress {
 public:
  using Clock = std::function<double()>;  // seconds from any start

  /// `work` names the work; `total_bytes` is 0 if it is not known. The console must outlive this object; with its
  /// `progress` off, nothing is shown.
  Progress(const Console &console, std::string work, int64_t total_bytes = 0, Clock clock = steady_seconds);
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress() { clear(); }

  /// expect sets the total.
  void expect(int64_t total_bytes) { total_bytes_ = total_bytes; }
  /// advance adds records and bytes that were done.
  void advance(int64_t records, int64_t bytes);
  /// clear removes the line before other output. advance may show it again.
  void clear();

 private:
  static double steady_seconds();
  std::string line(double elapsed) const;

  const Console &console_;
  std::string work_;
  int64_t total_bytes_;
  Clock clock_;
  double start_, next_;
  int64_t records_ = 0, bytes_ = 0;
  bool shown_ = false;
};

}  // namespace rdm::minidba

#endif
