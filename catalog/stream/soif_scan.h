// SPDX-License-Identifier: MIT
/// Checking a SOIF object before it is parsed.
#ifndef CATALOG_STREAM_SOIF_SCAN_H
#define CATALOG_STREAM_SOIF_SCAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "catalog/stream/input_window.h"

namespace rdm::catalog {

/// ScanFault is a fault of an object.
struct ScanFault {
  std::string text;      // the reason; empty if there is no fault
  bool met_end = false;  // the file ends within the object
};

/// printable returns a text for one line: its first `limit` bytes, with "?" for control characters, and "..." if it is
/// longer.
std::string printable(std::string_view text, size_t limit);

/// is_attribute_name returns true if the scan takes a text for the name of an attribute. The parser takes more: also
/// names with blanks, braces, "@" and control characters, and empty ones.
bool is_attribute_name(std::string_view name);

/// ByteCount is a byte count in an object.
struct ByteCount {
  std::string attribute;
  std::string text;      // the count as it is written
  int64_t value_offset;  // of the value in the file; 0 if no value begins there
};

/// SoifScan checks the objects of a file, from first to last. Wrong byte counts can lead every object of a stream into
/// the same long rest. Offsets known to lead to a fault are therefore memoised, so that a stream is scanned in linear
/// time.
class SoifScan {
 public:
  /// `window` belongs to the caller and must outlive the scan; `size` is the size of the stream in bytes.
  SoifScan(InputWindow &window, int64_t size) : window_(window), size_(size) {}

  /// fault_of returns the reason if the object whose "@" is at `offset` is malformed or not closed; otherwise an empty
  /// text. It seeks over values, so that a wrong count costs neither time nor memory. It is stricter than the parser:
  /// it refuses attribute names with white space or braces, which are usually the rest of a value with a wrong count.
  /// Passes on exceptions of the window.
  std::string fault_of(int64_t offset);
  /// end returns the offset after the last object, if that has no fault.
  int64_t end() const { return end_; }
  /// met_end returns true if the last object has a fault because the file ends within it.
  bool met_end() const { return fault_.met_end; }
  /// url returns the URL of the last object, or an empty text. last_count returns the last count that was read of it,
  /// which may be the wrong one, or std::nullopt if there was none.
  const std::string &url() const { return url_; }
  const std::optional<ByteCount> &last_count() const { return last_count_; }

 private:
  InputWindow &window_;
  int64_t size_;
  int64_t end_ = 0;
  std::string url_;
  std::optional<ByteCount> last_count_;
  std::unordered_map<int64_t, ScanFault> dead_ends_;  // offsets between attributes, and the fault after them
  ScanFault fault_;                                   // of the last object
};

}  // namespace rdm::catalog

#endif
