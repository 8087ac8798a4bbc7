/// A look at an object before it is read.
#ifndef MINIDBA_SOIF_SCAN_H
#define MINIDBA_SOIF_SCAN_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>

namespace minidba {

/// SoifScan looks at the objects of a file, from first to last. Where one leads to a place that one before it was led
/// to in vain, it is given up: values of wrong sizes can let every object of a stream end in the same long rest, which
/// is read once.
class SoifScan {
 public:
  SoifScan(FILE *file, int64_t size) : file_(file), size_(size) {}

  /// fault_of returns what is wrong with the object whose "@" is at `offset`, nothing when it can be read and is
  /// closed. It passes over the values, so that a wrong size costs neither time nor memory, and is stricter than the
  /// parser about names: one with blanks or braces is what a wrong size leaves behind. A read error shows in the file;
  /// one in seeking is a Failure.
  std::string fault_of(int64_t offset);

 private:
  FILE *file_;
  int64_t size_;
  std::unordered_map<int64_t, std::string> dead_ends_;  // places between attributes, and the fault behind them
};

}  // namespace minidba

#endif
