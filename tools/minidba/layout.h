/// How a hash file is laid out.
#ifndef MINIDBA_LAYOUT_H
#define MINIDBA_LAYOUT_H

#include <cstdint>
#include <string>

namespace minidba {

struct Layout {
  int64_t file_bytes;
  int64_t page_size;
  int64_t pages;
  int64_t buckets;
  int64_t overflow_pages;
  int64_t records;  // as the header counts them
};

/// layout_of reads the layout from the header of a sound hash file.
Layout layout_of(const std::string &path);

}  // namespace minidba

#endif
