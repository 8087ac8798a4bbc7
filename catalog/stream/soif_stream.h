// SPDX-License-Identifier: MIT
/// The objects of a SOIF stream, one at a time, each judged on its own.
#ifndef CATALOG_STREAM_SOIF_STREAM_H
#define CATALOG_STREAM_SOIF_STREAM_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "catalog/os/file.h"
#include "catalog/stream/soif_scan.h"
#include "libcs/guard.h"

namespace rdm::catalog {

/// SoifStream reads objects from a file. After an object that is malformed it goes on at the next line that begins with
/// "@", so that a wrong size costs no other object.
class SoifStream {
 public:
  /// The input is read from where it stands; one that cannot be read twice is first copied beside `beside`, and
  /// `copied` told how many bytes were, block by block. Failures call the input by its name.
  using Copied = std::function<void(int64_t bytes)>;
  SoifStream(
      int input, const std::string &beside, const Copied &copied = [](int64_t) {}, std::string name = "the input");

  /// Misfit is a byte count of a malformed object that is wrong.
  struct Misfit {
    std::string attribute;
    std::string count;  // as it is written
    size_t fits;        // the count that would fit
  };
  struct Item {
    int64_t number;        // of the object in the stream, from 1
    int64_t offset;        // of its "@", in bytes
    int64_t end;           // of the byte behind it; a malformed one reaches to where the reading goes on
    SoifPtr object;        // null when it is malformed
    std::string reason;    // why it is malformed
    bool is_cut = false;   // it is malformed because the input ends within it
    std::string url = {};  // of a malformed object, as far as it can be told
    std::optional<Misfit> misfit = {};
  };
  /// next returns the next object, or nothing at the end.
  std::optional<Item> next();

  /// bytes_of returns an object as it came. The next item is the same as without it.
  std::string bytes_of(const Item &item);
  /// line_of returns the number of the line, from 1, in which an offset lies. Offsets are best asked in rising order.
  int64_t line_of(int64_t offset);
  const std::string &name() const { return name_; }
  /// size returns how many bytes the stream has.
  int64_t size() const { return size_; }

 private:
  std::optional<int64_t> find_object(int64_t from, bool at_line_start);
  Item read_object(int64_t start);
  std::optional<Misfit> misfit_before(int64_t end) const;
  size_t read_at(int64_t offset, char *bytes, size_t count) const;
  void check_readable() const;

  struct FileCloser {
    void operator()(FILE *file) const { std::fclose(file); }
  };
  std::string name_;
  int descriptor_;  // belongs to file_
  std::unique_ptr<FILE, FileCloser> file_;
  std::optional<SoifScan> scan_;
  int64_t size_ = 0;
  int64_t position_ = 0;
  int64_t number_ = 0;
  int64_t counted_to_ = 0, lines_ = 1;  // the offset that line_of has counted to, and its line
};

}  // namespace rdm::catalog

#endif
