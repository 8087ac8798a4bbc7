// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/gzip.h"

#include <unistd.h>
#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <string_view>

#include "qxapi/uninterrupted.h"

namespace rdm::rdmd {
namespace {

constexpr int level = 1;
constexpr int gzip_format = 16 + MAX_WBITS;
constexpr int memory_level = 8;  // the default of zlib
constexpr std::size_t block_size = std::size_t{64} << 10;

class Compressor {
 public:
  Compressor() {
    if (deflateInit2(&stream_, level, Z_DEFLATED, gzip_format, memory_level, Z_DEFAULT_STRATEGY) != Z_OK)
      throw std::bad_alloc();
  }
  Compressor(const Compressor &) = delete;
  Compressor &operator=(const Compressor &) = delete;
  ~Compressor() { deflateEnd(&stream_); }

  /// add and finish return false if the result cannot be stored.
  bool add(std::string_view block) { return run(block, Z_NO_FLUSH); }
  bool finish() { return run({}, Z_FINISH); }

  hosts::OutputQueue &result() { return result_; }

 private:
  bool run(std::string_view block, int flush) {
    stream_.next_in = reinterpret_cast<const Bytef *>(block.data());
    stream_.avail_in = static_cast<uInt>(block.size());
    do {
      stream_.next_out = reinterpret_cast<Bytef *>(buffer_.data());
      stream_.avail_out = static_cast<uInt>(buffer_.size());
      deflate(&stream_, flush);
      const std::string_view made(buffer_.data(), buffer_.size() - stream_.avail_out);
      if (result_.append(made) < made.size()) return false;
    } while (stream_.avail_out == 0);
    return true;
  }

  z_stream stream_{};
  std::array<char, block_size> buffer_;
  hosts::OutputQueue result_;
};

bool add_bytes(Compressor &compressor, std::string_view bytes) {
  for (; !bytes.empty(); bytes.remove_prefix(std::min(block_size, bytes.size())))
    if (!compressor.add(bytes.substr(0, block_size))) return false;
  return true;
}

bool add_file(Compressor &compressor, const hosts::Piece &piece) {
  std::array<char, block_size> block;
  for (std::int64_t done = 0; done < piece.length;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(piece.length - done, block_size));
    const ssize_t got =
        uninterrupted([&] { return ::pread(piece.file->get(), block.data(), wanted, piece.offset + done); });
    if (got <= 0 || !compressor.add({block.data(), static_cast<std::size_t>(got)})) return false;
    done += got;
  }
  return true;
}

bool add_records(Compressor &compressor, const hosts::RecordSlice &records) {
  hosts::RecordCursor cursor(records);
  std::array<char, block_size> block;
  while (cursor.left() > 0) {
    const ssize_t got = cursor.read(block);
    if (got <= 0 || !compressor.add({block.data(), static_cast<std::size_t>(got)})) return false;
    cursor.skip(got);
  }
  return true;
}

bool add_piece(Compressor &compressor, const hosts::Piece &piece) {
  if (piece.records) return add_records(compressor, *piece.records);
  return piece.file ? add_file(compressor, piece) : add_bytes(compressor, piece.bytes);
}

bool add_all(Compressor &compressor, const std::vector<hosts::Piece> &pieces) {
  return std::all_of(pieces.begin(), pieces.end(),
                     [&](const hosts::Piece &piece) { return add_piece(compressor, piece); });
}

std::int64_t size_of(const std::vector<hosts::Piece> &pieces) {
  std::int64_t size = 0;
  for (const hosts::Piece &piece : pieces) size += piece.length;
  return size;
}

}  // namespace

std::optional<std::vector<hosts::Piece>> gzip(const std::vector<hosts::Piece> &pieces) {
  try {
    const auto compressor = std::make_unique<Compressor>();
    if (!add_all(*compressor, pieces) || !compressor->finish()) return std::nullopt;
    if (compressor->result().size() >= size_of(pieces)) return std::nullopt;
    return compressor->result().take();
  } catch (const std::bad_alloc &) {
    return std::nullopt;
  }
}

}  // namespace rdm::rdmd
