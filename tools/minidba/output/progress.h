// SPDX-License-Identifier: MIT
/// How far a long work is, for somebody who waits at a terminal.
#ifndef MINIDBA_OUTPUT_PROGRESS_H
#define MINIDBA_OUTPUT_PROGRESS_H

#include <cstdint>
#include <functional>
#include <string>

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Progress keeps one line on standard error up to date, from the second second on: records and bytes done, bytes a
/// second and, when it is known how much there is to do, the time left. The line is taken away with the scope.
class Progress {
 public:
  using Clock = std::function<double()>;  // seconds, from any beginning

  /// `work` names what is done; `total_bytes` is 0 when it is not known. A console that wants no progress gets none.
  Progress(const Console &console, std::string work, int64_t total_bytes = 0, Clock clock = steady_seconds);
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress() { clear(); }

  /// expect says how much there is to do in all, once that is known.
  void expect(int64_t total_bytes) { total_bytes_ = total_bytes; }
  /// advance says how much has been done since the last call.
  void advance(int64_t records, int64_t bytes);
  /// clear takes the line away, for other text; the next advance may bring it back.
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
