// SPDX-License-Identifier: MIT
/// Reading a SOIF stream that may hold malformed objects.
#ifndef CATALOG_STREAM_SOIF_STREAM_H
#define CATALOG_STREAM_SOIF_STREAM_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "catalog/object_view.h"
#include "catalog/os/file.h"
#include "catalog/stream/input_window.h"
#include "catalog/stream/soif_scan.h"

namespace rdm::catalog {

/// SoifStream reads the objects of a stream one by one. After a malformed object it continues at the next line that
/// begins with "@", so that a wrong byte count costs no other object. Its procedures throw a SystemFailure if the input
/// cannot be read.
class SoifStream {
 public:
  /// SoifStream duplicates the descriptor `input`. An input that is not a regular file at offset 0 is first copied to a
  /// scratch file in the directory of `beside`; `progress` receives the size of each copied block. `name` names the
  /// input in messages. After the last object, the offset of the descriptor is at its end.
  using CopyProgress = std::function<void(int64_t bytes)>;
  SoifStream(
      int input, const std::string &beside, const CopyProgress &progress = [](int64_t) {},
      std::string name = "the input");
  SoifStream(const SoifStream &) = delete;
  SoifStream &operator=(const SoifStream &) = delete;

  /// Misfit is a wrong byte count of a malformed object.
  struct Misfit {
    std::string attribute;
    std::string count;  // as it is written
    size_t fits;        // the count that would fit
  };
  struct Item {
    int64_t number;  // of the object in the stream, from 1
    int64_t offset;  // of its "@", in bytes
    int64_t end;     // of the byte after it; after a malformed object, of the next "@" at the start of a line
    /// object is empty if it is malformed. It is valid until the next call of next.
    std::optional<ObjectView> object;
    std::string reason;    // why it is malformed
    bool is_cut = false;   // it is malformed because the input ends within it
    std::string url = {};  // of a malformed object, if it could be read
    std::optional<Misfit> misfit = {};
  };
  /// next returns the next object, or std::nullopt at the end.
  std::optional<Item> next();

  /// restart has next begin again with the first object.
  void restart() { position_ = number_ = 0; }

  /// is_blank returns true if there is only white space between two offsets.
  bool is_blank(int64_t from, int64_t to) const;
  /// bytes_of returns the bytes of an object as they were sent. It does not change the result of next.
  std::string bytes_of(const Item &item);
  /// each_block visits all bytes of the stream in blocks, from the first. It does not change the result of next.
  void each_block(const std::function<void(std::string_view bytes)> &visit) const;
  /// line_of returns the line number, from 1, of an offset. It is fastest for ascending offsets.
  int64_t line_of(int64_t offset) { return place_of(offset).line; }
  /// place_of returns line and column of an offset, both from 1. A column is a byte. It is fastest for ascending
  /// offsets.
  struct Place {
    int64_t line, column;
  };
  Place place_of(int64_t offset);
  /// text_between returns the bytes from `start` to `end`.
  std::string text_between(int64_t start, int64_t end) const { return bytes_between(start, end); }
  const std::string &name() const { return name_; }
  /// size returns the size of the stream in bytes.
  int64_t size() const { return size_; }

 private:
  std::optional<int64_t> find_object(int64_t from, bool at_line_start);
  std::optional<ObjectView> sound_object(int64_t start, int64_t &end);
  Item read_object(int64_t start);
  std::optional<Misfit> misfit_before(int64_t end) const;
  size_t read_at(int64_t offset, char *bytes, size_t count) const;
  std::optional<ObjectView> parse_object(int64_t start, int64_t end);
  std::string bytes_between(int64_t start, int64_t end) const;

  std::string name_;
  HostFileGuard file_;
  int64_t size_;
  InputWindow window_;
  SoifScan scan_;
  int64_t position_ = 0;
  int64_t number_ = 0;
  int64_t tried_to_ = 0;                                  // sound_object has read up to here in vain
  int64_t line_offset_ = 0, line_start_ = 0, lines_ = 1;  // an offset and its line, from which place_of counts
};

}  // namespace rdm::catalog

#endif
