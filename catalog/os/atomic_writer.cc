// SPDX-License-Identifier: MIT
#include "catalog/os/atomic_writer.h"

#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

constexpr size_t block_size = 1 << 16;

const std::string &checked(const std::string &target) {
  const auto status = status_of(target);
  if (status && !S_ISREG(status->st_mode)) throw Failure("not a regular file: " + target);
  return target;
}

}  // namespace

AtomicWriter::AtomicWriter(const std::string &target) : file_(checked(target)) {}

void AtomicWriter::write(std::string_view bytes) {
  unwritten_ += bytes;
  if (unwritten_.size() >= block_size) flush();
}

void AtomicWriter::flush() {
  file_.file().write_at(size_, unwritten_);
  size_ += static_cast<int64_t>(unwritten_.size());
  unwritten_.clear();
}

void AtomicWriter::finish() {
  flush();
  file_.sync();
}

}  // namespace rdm::catalog
