// SPDX-License-Identifier: MIT
#include "catalog/index_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <tuple>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "qxapi/counted.h"

namespace rdm::catalog {
namespace {

template <size_t size>
void append(std::string &bytes, const std::array<char, size> &more) {
  bytes.append(more.data(), size);
}

}  // namespace

IndexEntry entry_of(uint32_t number, std::string_view record, int64_t change_time) {
  const auto time = std::clamp<int64_t>(change_time, 0, std::numeric_limits<uint32_t>::max());
  return {static_cast<uint32_t>(time), 0, number, static_cast<uint32_t>(record.size()),
          index_format::checksum_of(record)};
}

bool precedes(const IndexEntry &a, const IndexEntry &b) {
  return std::tie(a.time, a.number) < std::tie(b.time, b.number);
}

std::string encode(const std::vector<IndexEntry> &entries) {
  std::string bytes;
  const auto count = static_cast<uint32_t>(entries.size());
  bytes.reserve(index_format::file_size(count));
  append(bytes, index_format::encode_header(count));
  for (const IndexEntry &entry : entries) append(bytes, index_format::encode(entry));
  return bytes;
}

std::vector<IndexEntry> decode(std::string_view bytes, const std::string &path) {
  if (!index_format::has_magic(bytes)) throw Failure("not an index: " + path);
  const uint32_t count = index_format::entry_count(bytes);
  if (bytes.size() != index_format::file_size(count))
    throw Failure("not as long as its " + counted(count, "entry", "entries") + ": " + path);
  std::vector<IndexEntry> entries;
  entries.reserve(count);
  for (size_t i = 0; i < count; ++i) entries.push_back(index_format::entry_at(bytes, i));
  return entries;
}

namespace {

std::string bytes_of(const std::string &path) {
  const HostFileGuard file = open_file(path, O_RDONLY);
  std::string bytes;
  char block[1 << 16];
  ssize_t got = file ? 1 : -1;
  while (got > 0) {
    got = uninterrupted([&] { return ::read(file.get(), block, sizeof block); });
    bytes.append(block, static_cast<size_t>(std::max<ssize_t>(got, 0)));
  }
  if (got < 0) throw system_failure("cannot read " + path);
  return bytes;
}

}  // namespace

std::string content_of(const std::string &path) {
  require_regular(path);
  return bytes_of(path);
}

std::vector<IndexEntry> read_index(const std::string &path) { return decode(bytes_of(path), path); }

}  // namespace rdm::catalog
