// SPDX-License-Identifier: MIT
#include "service/rds/index_file.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "service/rds/index_search.h"

namespace rdm {

bool IndexFile::open(const char *path) noexcept {
  constexpr uint32_t most = std::numeric_limits<int32_t>::max();
  file_ = HostFileGuard(host_open_read(path));
  if (!file_) return false;
  const int64_t size = host_seek(file_.get(), 0, SEEK_END);
  char bytes[index_format::header_size];
  const std::string_view header(bytes, sizeof bytes);
  if (size < int64_t{sizeof bytes} || !read(0, bytes, sizeof bytes) || !index_format::has_magic(header)) return false;
  count_ = index_format::entry_count(header);
  return count_ <= most && static_cast<uint64_t>(size) >= index_format::file_size(count_);
}

bool IndexFile::read(int64_t offset, char *bytes, int64_t size) const noexcept {
  return host_seek(file_.get(), offset, SEEK_SET) == offset &&
         host_read(file_.get(), bytes, static_cast<int32_t>(size)) == size;
}

bool IndexFile::read_block(uint32_t block) noexcept {
  const uint32_t first = block * block_entries, entries = std::min(block_entries, count_ - first);
  block_ = block;
  has_block_ = read(static_cast<int64_t>(index_format::file_size(first)), bytes_,
                    static_cast<int64_t>(entries * index_format::entry_size));
  return has_block_;
}

index_format::Entry IndexFile::entry(uint32_t position) noexcept {
  const uint32_t block = position / block_entries;
  if ((!has_block_ || block != block_) && !read_block(block)) {
    failed_ = true;
    return {};
  }
  return index_format::decode({bytes_ + position % block_entries * index_format::entry_size, index_format::entry_size});
}

int32_t IndexFile::search(time_t since) noexcept {
  if (count_ == 0) return -1;
  return search_index(count_, static_cast<uint64_t>(since),
                      [this](int64_t position) { return entry(static_cast<uint32_t>(position)).time; });
}

}  // namespace rdm
