// SPDX-License-Identifier: MIT
/// Faults that are named on standard error, the first hundred of them.
#ifndef MINIDBA_OUTPUT_FAULTS_H
#define MINIDBA_OUTPUT_FAULTS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace rdm::minidba {

/// Faults names the first faults that it is told of on a line each, and counts the others.
class Faults {
 public:
  explicit Faults(std::ostream &errors) : errors_(errors) {}
  void add(const std::string &text);
  /// close writes how many faults were not named, if any.
  void close();
  int64_t count() const { return count_; }
  /// is_full returns true if some were not named.
  bool is_full() const { return count_ > named; }
  const std::vector<std::string> &texts() const { return texts_; }

 private:
  static constexpr int64_t named = 100;
  std::ostream &errors_;
  int64_t count_ = 0;
  std::vector<std::string> texts_;
};

}  // namespace rdm::minidba

#endif
