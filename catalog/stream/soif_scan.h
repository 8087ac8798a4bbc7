// SPDX-License-Identifier: MIT
/// A look at an object before it is read.
#ifndef CATALOG_STREAM_SOIF_SCAN_H
#define CATALOG_STREAM_SOIF_SCAN_H

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace rdm::catalog {

/// ScanFault is what is wrong with an object; the text is empty where nothing is.
struct ScanFault {
  std::string text;
  bool met_end = false;  // the file ends within the object
};

/// printable returns a text fit for one line: at most `limit` bytes of it, control characters replaced.
std::string printable(std::string_view text, size_t limit);

/// Counted is the last attribute whose byte count a scan has read: when an object is faulty, the count that may be
/// wrong.
struct Counted {
  std::string attribute;
  std::string count;  // as it is written
  int64_t value;      // the offset of the value
};

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
  /// met_end returns true if the object that fault_of was last asked about has a fault because the file ends within it.
  bool met_end() const { return fault_.met_end; }
  /// url and last_count tell about the object that fault_of looked at last; empty where it has none.
  const std::string &url() const { return url_; }
  const std::optional<Counted> &last_count() const { return last_count_; }

 private:
  FILE *file_;
  int64_t size_;
  std::string url_;
  std::optional<Counted> last_count_;
  std::unordered_map<int64_t, ScanFault> dead_ends_;  // places between attributes, and the fault behind them
  ScanFault fault_;                                   // of the last object
};

}  // namespace rdm::catalog

#endif
