// SPDX-License-Identifier: MIT
/// A progress line on a terminal.
#ifndef TOOLS_COMMON_PROGRESS_H
#define TOOLS_COMMON_PROGRESS_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace rdm::tools {

/// Progress shows a line on standard error after the first second, and updates it at most five times a second: records
/// and bytes done, bytes a second and, if the total is known, the time left. The destructor clears the line.
class Progress {
 public:
  using Clock = std::function<double()>;  // seconds from any start

  /// `title` begins the line: the program and its work. `total_bytes` is 0 if it is not known. `errors` must outlive
  /// this object. Without `is_shown`, nothing is shown.
  Progress(std::ostream &errors, bool is_shown, std::string title, int64_t total_bytes = 0,
           Clock clock = steady_seconds);
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress() { clear(); }

  /// expect sets the total.
  void expect(int64_t total_bytes) { total_bytes_ = total_bytes; }
  /// advance adds records and bytes that were done.
  void advance(int64_t records, int64_t bytes);
  /// clear removes the line before other output. advance may show it again.
  void clear();

  static double steady_seconds();

 private:
  std::string line(double elapsed) const;

  std::ostream &errors_;
  bool is_shown_;
  std::string title_;
  int64_t total_bytes_;
  Clock clock_;
  double start_, next_;
  int64_t records_ = 0, bytes_ = 0;
  bool is_on_screen_ = false;
};

}  // namespace rdm::tools

#endif
