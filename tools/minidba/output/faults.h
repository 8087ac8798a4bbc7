// SPDX-License-Identifier: MIT
/// Reporting faults on standard error.
#ifndef MINIDBA_OUTPUT_FAULTS_H
#define MINIDBA_OUTPUT_FAULTS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace rdm::minidba {

/// Faults writes a line for each of the first hundred faults, and counts the others.
class Faults {
 public:
  explicit Faults(std::ostream &errors) : errors_(errors) {}
  void add(const std::string &text);
  /// close writes how many faults have no line, if any.
  void close();
  int64_t count() const { return count_; }
  /// is_full returns true if there are faults without a line.
  bool is_full() const { return count_ > named; }
  /// texts returns the faults that have a line, without escapes.
  const std::vector<std::string> &texts() const { return texts_; }

 private:
  static constexpr int64_t named = 100;
  std::ostream &errors_;
  int64_t count_ = 0;
  std::vector<std::string> texts_;
};

}  // namespace rdm::minidba

#endif
