// SPDX-License-Identifier: MIT
#include "catalog/os/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "catalog/os/error.h"
#include "qxapi/unlinked_file.h"

namespace rdm::catalog {
namespace {

namespace fs = std::filesystem;

constexpr size_t copy_block = 1 << 20;
constexpr int64_t copy_step = 16 << 20;  // after which the system begins to put the copy onto the disk

/// copy_in_kernel copies with copy_file_range and returns the offset of the first byte that it could not copy: some
/// file systems do not support the call.
int64_t copy_in_kernel(const File &from, const File &to, int64_t offset, int64_t end) {
  off_t in = offset, out = offset;
  while (in < end) {
    const auto count = static_cast<size_t>(end - in);
    if (::copy_file_range(from.descriptor(), &in, to.descriptor(), &out, count, 0) <= 0) break;
  }
  return in;
}

void copy_range(const File &from, const File &to, int64_t offset, int64_t end) {
  offset = copy_in_kernel(from, to, offset, end);
  std::vector<char> block(offset < end ? copy_block : 0);
  while (offset < end) {
    const size_t count = std::min(block.size(), static_cast<size_t>(end - offset));
    from.read_at(offset, block.data(), count);
    to.write_at(offset, {block.data(), count});
    offset += static_cast<int64_t>(count);
  }
}

std::string scratch_prefix(const std::string &path) {
  return fs::path(path).filename().string() + std::string(scratch_mark);
}

File make_scratch(const std::string &beside) {
  const std::string directory = directory_of(beside), name = "a temporary file in " + directory;
  HostFileGuard file = open_unlinked(directory, scratch_prefix(beside));
  if (!file && (errno == EACCES || errno == EPERM || errno == EROFS))
    file = open_unlinked(fs::temp_directory_path().string(), scratch_prefix(beside));
  if (!file) throw system_failure("cannot create " + name);
  return File(std::move(file), name);
}

}  // namespace

std::string directory_of(const std::string &path) {
  const std::string directory = fs::path(path).parent_path().string();
  return directory.empty() ? "." : directory;
}

void require_regular(const std::string &path) {
  if (const auto status = status_of(path); status && !S_ISREG(status->st_mode))
    throw Failure("not a regular file: " + path);
}

std::string followed_link(const std::string &path) {
  std::error_code error;
  if (!fs::is_symlink(path, error)) return path;
  std::string file = fs::canonical(path, error).string();
  if (error) throw Failure("cannot follow the link " + path + ": " + error.message());
  return file;
}

HostFileGuard open_file(const std::string &path, int flags, mode_t mode) {
  return HostFileGuard(uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

std::optional<struct stat> status_of(const std::string &path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) return status;
  if (errno == ENOENT) return std::nullopt;
  throw system_failure("stat " + path);
}

File File::create(const std::string &path, mode_t mode) {
  HostFileGuard file = open_file(path, O_RDWR | O_CREAT | O_EXCL, mode);
  if (!file) throw system_failure("cannot create " + path);
  return File(std::move(file), path);
}

File File::open(const std::string &path) {
  require_regular(path);
  HostFileGuard file = open_file(path, O_RDONLY);
  if (!file) throw system_failure("cannot open " + path);
  return File(std::move(file), path);
}

struct stat File::status() const {
  struct stat status;
  if (::fstat(descriptor(), &status) != 0) throw system_failure("stat " + name_);
  return status;
}

void File::read_at(int64_t offset, void *bytes, size_t count) const {
  for (auto *to = static_cast<char *>(bytes); count > 0;) {
    const ssize_t got = uninterrupted([&] { return ::pread(descriptor(), to, count, offset); });
    if (got < 0) throw system_failure("cannot read " + name_);
    if (got == 0) throw Failure("cannot read " + name_ + ": it ends too early");
    to += got, offset += got, count -= static_cast<size_t>(got);
  }
}

void File::write_at(int64_t offset, std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t put = uninterrupted([&] { return ::pwrite(descriptor(), bytes.data(), bytes.size(), offset); });
    if (put <= 0) throw system_failure("cannot write " + name_);
    bytes.remove_prefix(static_cast<size_t>(put));
    offset += put;
  }
}

void File::start_writeback(int64_t begin, int64_t end) const {
  ::sync_file_range(descriptor(), begin, end - begin, SYNC_FILE_RANGE_WRITE);
}

void File::resize(int64_t size) const {
  if (uninterrupted([&] { return ::ftruncate(descriptor(), size); }) != 0)
    throw system_failure("cannot write " + name_);
}

void copy_contents(const File &from, const File &to) {
  const int64_t size = from.size();
  to.resize(size);
  for (int64_t offset = 0; offset < size;) {
    const off_t data = ::lseek(from.descriptor(), offset, SEEK_DATA);
    if (data == -1 && errno == ENXIO) break;
    const off_t hole = data == -1 ? -1 : ::lseek(from.descriptor(), data, SEEK_HOLE);
    const int64_t piece = data == -1 ? offset : data;
    offset = std::min(hole == -1 ? size : hole, piece + copy_step);
    copy_range(from, to, piece, offset);
    to.start_writeback(piece, offset);
  }
}

ScratchFile::ScratchFile(const std::string &beside, size_t memory) : file_(make_scratch(beside)), memory_(memory) {}

int64_t ScratchFile::append(std::string_view bytes) {
  const int64_t offset = size();
  if (unwritten_.size() + bytes.size() > memory_) flush();
  if (bytes.size() > memory_)
    write(bytes);
  else
    unwritten_ += bytes;
  return offset;
}

void ScratchFile::write(std::string_view bytes) {
  file_.write_at(written_, bytes);
  written_ += static_cast<int64_t>(bytes.size());
}

void ScratchFile::flush() {
  write(unwritten_);
  unwritten_.clear();
}

void ScratchFile::read(int64_t offset, void *bytes, size_t count) const {
  const size_t in_file = offset < written_ ? std::min(count, static_cast<size_t>(written_ - offset)) : 0;
  file_.read_at(offset, bytes, in_file);
  const auto rest = static_cast<size_t>(offset - written_ + static_cast<int64_t>(in_file));
  if (in_file < count) unwritten_.copy(static_cast<char *>(bytes) + in_file, count - in_file, rest);
}

int ScratchFile::descriptor() {
  flush();
  return file_.descriptor();
}

}  // namespace rdm::catalog
