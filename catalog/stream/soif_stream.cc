// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/fitting_count.h"

namespace rdm::catalog {
namespace {

bool can_be_read_twice(int input) {
  struct stat status;
  return ::fstat(input, &status) == 0 && S_ISREG(status.st_mode) && ::lseek(input, 0, SEEK_CUR) == 0;
}

/// copy_of copies the rest of the input to a scratch file and returns a descriptor of the copy.
int copy_of(int input, const std::string &name, const std::string &beside, const SoifStream::CopyProgress &progress) {
  ScratchFile copy(beside);
  std::vector<char> block(1 << 16);
  for (;;) {
    const ssize_t got = uninterrupted([&] { return ::read(input, block.data(), block.size()); });
    if (got < 0) throw system_failure("cannot read " + name);
    if (got == 0) break;
    copy.append({block.data(), static_cast<size_t>(got)});
    progress(got);
  }
  return ::fcntl(copy.descriptor(), F_DUPFD_CLOEXEC, 0);
}

int64_t size_of(int input, const std::string &name) {
  struct stat status;
  if (input == -1 || ::fstat(input, &status) != 0) throw system_failure("cannot read " + name);
  return status.st_size;
}

}  // namespace

SoifStream::SoifStream(int input, const std::string &beside, const CopyProgress &progress, std::string name)
    : name_(std::move(name)),
      file_(can_be_read_twice(input) ? ::fcntl(input, F_DUPFD_CLOEXEC, 0) : copy_of(input, name_, beside, progress)),
      size_(size_of(file_.get(), name_)),
      window_([this](int64_t offset, char *bytes, size_t count) { return read_at(offset, bytes, count); }),
      scan_(window_, size_) {}

/// find_object returns the offset of the next "@" or, with `at_line_start`, of the next "@" at the start of a line.
std::optional<int64_t> SoifStream::find_object(int64_t from, bool at_line_start) {
  bool line_start = !at_line_start;
  for (std::string_view bytes = window_.from(from); !bytes.empty(); bytes = window_.from(from)) {
    for (size_t at = bytes.find('@'); at != std::string_view::npos; at = bytes.find('@', at + 1))
      if (!at_line_start || (at == 0 ? line_start : bytes[at - 1] == '\n')) return from + static_cast<int64_t>(at);
    line_start = bytes.back() == '\n';
    from += static_cast<int64_t>(bytes.size());
  }
  return std::nullopt;
}

/// sound_object reads an object that the window holds as a whole and in which the scan would find no fault; `end`
/// receives the offset after it. It reads no byte twice: in malformed input, objects may begin anywhere.
std::optional<ObjectView> SoifStream::sound_object(int64_t start, int64_t &end) {
  if (start < tried_to_) return std::nullopt;
  const std::string_view text = window_.from(start);
  size_t size = 0;
  std::optional<ObjectView> object = ObjectView::read_closed(text, size);
  end = start + static_cast<int64_t>(size);
  bool is_sound = object && text.substr(0, size).find('\0') == std::string_view::npos;
  if (is_sound) object->each([&](std::string_view name, auto) { is_sound = is_sound && is_attribute_name(name); });
  if (is_sound) return object;
  tried_to_ = end;
  return std::nullopt;
}

/// read_object reads the object whose "@" is at `start`.
SoifStream::Item SoifStream::read_object(int64_t start) {
  int64_t end = start;
  if (auto object = sound_object(start, end)) return {++number_, start, end, std::move(object), {}};
  Item item{++number_, start, start, {}, scan_.fault_of(start)};
  item.is_cut = scan_.met_end();
  if (!item.reason.empty()) return item;
  item.end = scan_.end();
  item.object = parse_object(start, item.end);
  if (!item.object) item.reason = "not a SOIF object";
  return item;
}

std::optional<ObjectView> SoifStream::parse_object(int64_t start, int64_t end) {
  if (end - start > std::numeric_limits<int32_t>::max()) return std::nullopt;
  if (const auto bytes = window_.held(start, end)) return ObjectView::read(*bytes);
  return ObjectView::read_owned(bytes_between(start, end));
}

std::optional<SoifStream::Item> SoifStream::next() {
  const std::optional<int64_t> start = find_object(position_, false);
  if (!start) {
    if (size_of(file_.get(), name_) < size_) throw Failure("cannot read " + name_ + ": it has become shorter");
    ::lseek(file_.get(), size_, SEEK_SET);  // the caller's descriptor shares the offset
    return std::nullopt;
  }
  Item item = read_object(*start);
  if (!item.object) {
    item.end = find_object(*start + 1, true).value_or(size_);
    item.url = scan_.url();
    item.misfit = misfit_before(item.end);
  }
  position_ = item.end;
  return item;
}

/// misfit_before returns the last count of the object before `end` if another count fits, otherwise std::nullopt.
std::optional<SoifStream::Misfit> SoifStream::misfit_before(int64_t end) const {
  constexpr int64_t most = 1 << 20;
  const std::optional<ByteCount> &last = scan_.last_count();
  if (!last || last->value_offset <= 0 || last->value_offset >= end) return std::nullopt;
  std::string rest(static_cast<size_t>(std::min(end - last->value_offset, most)), '\0');
  rest.resize(read_at(last->value_offset, rest.data(), rest.size()));
  const std::optional<size_t> fits = fitting_count(rest);
  if (!fits || std::to_string(*fits) == last->text) return std::nullopt;
  return Misfit{last->attribute, last->text, *fits};
}

/// read_at uses pread, which does not move the position of the stream.
size_t SoifStream::read_at(int64_t offset, char *bytes, size_t count) const {
  const ssize_t got = uninterrupted([&] { return ::pread(file_.get(), bytes, count, offset); });
  if (got < 0) throw system_failure("cannot read " + name_);
  return static_cast<size_t>(got);
}

bool SoifStream::is_blank(int64_t from, int64_t to) const {
  if (const auto bytes = window_.held(from, to)) return std::all_of(bytes->begin(), bytes->end(), ascii::is_space);
  std::array<char, 4096> block;
  while (from < to) {
    const size_t got = read_at(from, block.data(), std::min(block.size(), static_cast<size_t>(to - from)));
    if (got == 0) return true;
    if (!std::all_of(block.data(), block.data() + got, ascii::is_space)) return false;
    from += static_cast<int64_t>(got);
  }
  return true;
}

void SoifStream::each_block(const std::function<void(std::string_view bytes)> &visit) const {
  std::vector<char> block(1 << 18);
  for (int64_t at = 0; at < size_;) {
    const size_t got = read_at(at, block.data(), std::min(block.size(), static_cast<size_t>(size_ - at)));
    if (got == 0) throw Failure("cannot read " + name_ + ": it has become shorter");
    visit({block.data(), got});
    at += static_cast<int64_t>(got);
  }
}

SoifStream::Place SoifStream::place_of(int64_t offset) {
  if (offset < line_offset_) line_offset_ = line_start_ = 0, lines_ = 1;
  std::array<char, 1 << 16> block;
  while (line_offset_ < offset) {
    const auto wanted = std::min<size_t>(block.size(), static_cast<size_t>(offset - line_offset_));
    const std::string_view read(block.data(), read_at(line_offset_, block.data(), wanted));
    if (read.empty()) break;
    lines_ += std::count(read.begin(), read.end(), '\n');
    if (const size_t last = read.rfind('\n'); last != std::string_view::npos)
      line_start_ = line_offset_ + static_cast<int64_t>(last) + 1;
    line_offset_ += static_cast<int64_t>(read.size());
  }
  return {lines_, line_offset_ - line_start_ + 1};
}

std::string SoifStream::bytes_of(const Item &item) { return bytes_between(item.offset, item.end); }

std::string SoifStream::bytes_between(int64_t start, int64_t end) const {
  std::string bytes(static_cast<size_t>(end - start), '\0');
  for (size_t held = 0, got = 0; held < bytes.size(); held += got) {
    got = read_at(start + static_cast<int64_t>(held), bytes.data() + held, bytes.size() - held);
    if (got == 0) throw Failure("cannot read " + name_ + ": it has become shorter");
  }
  return bytes;
}

}  // namespace rdm::catalog
