// SPDX-License-Identifier: MIT
/// Decompresses what a server has compressed. Programs link ZLIB::ZLIB for it.
#ifndef TESTS_SUPPORT_GUNZIP_H
#define TESTS_SUPPORT_GUNZIP_H

#include <zlib.h>

#include <array>
#include <string>

namespace rdm::support {

/// accept_gzip is the header with which a client accepts it.
inline constexpr char accept_gzip[] = "Accept-Encoding: gzip\r\n";

/// gunzip returns the text of one complete gzip member, or "malformed" if `bytes` are not exactly that.
inline std::string gunzip(std::string bytes) {
  z_stream stream{};
  if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK) return "malformed";
  stream.next_in = reinterpret_cast<Bytef *>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string text;
  std::array<char, 65536> block;
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef *>(block.data());
    stream.avail_out = static_cast<uInt>(block.size());
    result = inflate(&stream, Z_NO_FLUSH);
    text.append(block.data(), block.size() - stream.avail_out);
  }
  const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return whole ? text : "malformed";
}

}  // namespace rdm::support

#endif
