// SPDX-License-Identifier: MIT
/// The pages of a sound hash file, taken apart by code of the tests' own, so that the reader is not its own judge.
#ifndef TESTS_DAMAGE_PAGES_H
#define TESTS_DAMAGE_PAGES_H

#include <cstring>
#include <string>
#include <vector>

#include "hashdb/format.h"

namespace rdm::damage {

/// slot returns a number of a page's slots, set_slot changes it.
inline uint16_t slot(const std::string &bytes, size_t page_start, size_t index) {
  uint16_t number = 0;
  std::memcpy(&number, &bytes.at(page_start + 2 * index), sizeof number);
  return number;
}
inline void set_slot(std::string &bytes, size_t page_start, size_t index, uint16_t number) {
  std::memcpy(&bytes.at(page_start + 2 * index), &number, sizeof number);
}

/// HashPages knows what each page of a file is for.
class HashPages {
 public:
  explicit HashPages(const std::string &bytes);

  /// Link is a slot that names an overflow page.
  struct Link {
    uint64_t page;
    size_t index;
  };
  std::vector<uint64_t> primary, overflow, bitmaps;  // overflow: those in use
  std::vector<Link> links;
  hashdb::Header header;

  size_t start(uint64_t page) const { return page << header.page_shift; }
  uint64_t count() const { return bytes_.size() >> header.page_shift; }
  /// matters says for each byte of the file whether a reader of all records comes to see it. It does not see the rest
  /// of the header's pages, the bytes of a page between its slots and its data, the pages of bits, which only
  /// writers use, and overflow pages that no bucket leads to. It does not look behind the link to another page, so that
  /// the number of slots before it may grow, nor at the second number of the link between two pages of a value.
  std::vector<bool> matters() const;

 private:
  struct Use {
    uint64_t page;
    size_t slots_end, data_start;  // within the page
    std::vector<size_t> unread;    // bytes of the slots that may change unseen
  };
  void take_bucket(uint32_t bucket);
  size_t data_start(uint64_t page, bool begins_long) const;

  const std::string &bytes_;
  std::vector<Use> uses_;
};

}  // namespace rdm::damage

#endif
