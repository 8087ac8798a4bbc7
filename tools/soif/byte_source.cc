// SPDX-License-Identifier: MIT
#include "tools/soif/byte_source.h"

#include "catalog/os/error.h"

namespace rdm::soif_tool {
namespace {

constexpr size_t buffer_size = 1 << 16;
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

}  // namespace

ByteSource::ByteSource(Read read, std::string name)
    : read_(std::move(read)), name_(std::move(name)), buffer_(buffer_size, '\0') {
  const auto begin = [this] { return std::string_view(buffer_.data(), end_); };
  while (end_ < byte_order_mark.size() && byte_order_mark.starts_with(begin())) {
    const size_t got = read_(buffer_.data() + end_, buffer_.size() - end_);
    if (got == 0) break;
    end_ += got;
  }
  if (begin().starts_with(byte_order_mark)) at_ = byte_order_mark.size();
}

bool ByteSource::load() {
  at_ = 0;
  end_ = read_(buffer_.data(), buffer_.size());
  return end_ != 0;
}

void ByteSource::require_room(size_t size, int64_t line) const {
  if (size > largest_record)
    throw catalog::Failure(name_ + ":" + std::to_string(line) + ": a record has more than 300 MiB");
}

}  // namespace rdm::soif_tool
