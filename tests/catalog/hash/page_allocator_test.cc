// SPDX-License-Identifier: MIT
#include "catalog/hash/page_allocator.h"

#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

constexpr uint32_t page_size = 512;

/// header_of returns the header of a file with one bucket and this many overflow pages, the first of them the bitmap.
hashdb::Header header_of(uint32_t overflow_pages) {
  hashdb::Header header{};
  header.page_size = page_size;
  header.page_shift = 9;
  header.header_pages = 1;
  header.spares[0] = overflow_pages;
  header.bitmaps[0] = hashdb::overflow_address(0, 1);
  return header;
}

TEST(PageAllocation, ADoublingHasALimitOfPages) {
  const support::TemporaryDirectory directory;
  hashdb::Header header = header_of(hashdb::split_pages - 1);
  const auto bitmap = static_cast<int64_t>(hashdb::overflow_page(header, header.bitmaps[0])) * page_size;
  const catalog::File file = catalog::File::create(directory.path("pages"));
  file.write_at(bitmap, std::string(page_size, '\xFF'));
  catalog::PageAllocator allocator(header, file);
  EXPECT_EQ(allocator.take(), hashdb::overflow_address(0, hashdb::split_pages));
  EXPECT_THROW(allocator.take(), catalog::NoPage);
}

}  // namespace
