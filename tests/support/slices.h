// SPDX-License-Identifier: MIT
/// Slices for tests: files of records and places, and what a slice should send.
#ifndef TESTS_SUPPORT_SLICES_H
#define TESTS_SUPPORT_SLICES_H

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/slice.h>

#include "qxapi/guard.h"

namespace rdm::support {

/// bytes_of returns the bytes of the records of a slice, which it reads one by one.
inline std::string bytes_of(const host_slice &slice) {
  std::string all;
  for (uint32_t i = slice.first; i < slice.first + slice.count; ++i) {
    host_place place{};
    EXPECT_EQ(::pread(slice.places, &place, sizeof place, static_cast<off_t>(i * sizeof place)),
              static_cast<ssize_t>(sizeof place));
    std::string bytes(place.size, '\0');
    EXPECT_EQ(::pread(slice.records, bytes.data(), bytes.size(), place.offset), static_cast<ssize_t>(place.size));
    all += bytes;
  }
  EXPECT_EQ(static_cast<int64_t>(all.size()), slice.length);
  return all;
}

/// SliceFiles is a file of text, and one of places in it.
class SliceFiles {
 public:
  SliceFiles(const std::string &path, const std::string &text, const std::vector<host_place> &places)
      : path_(path), places_(places) {
    const std::string list(reinterpret_cast<const char *>(places.data()), places.size() * sizeof(host_place));
    records_file_ = write(path, text);
    places_file_ = write(path + ".places", list);
  }
  const std::string &path() const { return path_; }

  /// slice returns a slice of the places; its length is right.
  host_slice slice(uint32_t first, uint32_t count) const {
    host_slice made{records_file_.get(), places_file_.get(), first, count, 0};
    for (uint32_t i = first; i < first + count; ++i) made.length += places_[i].size;
    return made;
  }
  host_slice all() const { return slice(0, static_cast<uint32_t>(places_.size())); }

 private:
  static HostFileGuard write(const std::string &path, const std::string &bytes) {
    HostFileGuard file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    EXPECT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return file;
  }

  std::string path_;
  std::vector<host_place> places_;
  HostFileGuard records_file_, places_file_;
};

/// scattered returns the places of `count` records of some hundred bytes in a text of `size` bytes, here and there.
inline std::vector<host_place> scattered(uint32_t count, std::size_t size) {
  std::vector<host_place> places;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t length = 1 + i * 37 % 700;
    places.push_back({static_cast<int64_t>(std::size_t{i} * 7919 % (size - length)), length, 0});
  }
  return places;
}

}  // namespace rdm::support

#endif
