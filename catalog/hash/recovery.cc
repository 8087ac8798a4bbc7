// SPDX-License-Identifier: MIT
#include "catalog/hash/recovery.h"

#include <algorithm>
#include <cstring>

#include "catalog/hash/builder.h"
#include "catalog/hash/page_allocator.h"
#include "catalog/hash/table.h"
#include "catalog/hash/trailer.h"
#include "catalog/os/error.h"
#include "catalog/record.h"
#include "hashdb/cursor.h"

namespace rdm::catalog {
namespace {

using hashdb::Cursor;
using hashdb::Header;
namespace slot_mark = hashdb::slot_mark;

constexpr uint32_t sampled_buckets = 64;

/// Slots reads the numbers at the start of a page, in this machine's byte order. Past the end of the page they are 0.
class Slots {
 public:
  explicit Slots(const std::string &page) : page_(page) {}
  uint32_t operator[](size_t index) const {
    uint16_t number = 0;
    if (2 * index + 2 <= page_.size()) std::memcpy(&number, &page_[2 * index], sizeof number);
    return number;
  }
  uint32_t count() const { return (*this)[0]; }
  /// is_plausible returns true if the slots fit into the page.
  bool is_plausible() const { return count() % 2 == 0 && size_t{2} * (count() + 3) <= page_.size(); }
  /// data returns the bytes from the offset in the first slot to the end of the page, or std::nullopt if the offset is
  /// wrong.
  std::optional<std::string_view> data() const {
    const uint32_t start = (*this)[1];
    if (start < 2 * (count() + 1) || start > page_.size()) return std::nullopt;
    return std::string_view(page_).substr(start);
  }
  bool begins_long_record() const {
    return count() == 4 && (*this)[2] == slot_mark::full_key_data && (*this)[4] >= slot_mark::first_offset &&
           (*this)[4] <= (*this)[1];
  }

 private:
  const std::string &page_;
};

/// is_blank returns true for a page without records: a hole, or a bitmap of pages that are all in use.
bool is_blank(const std::string &bytes) {
  const char first = bytes.front();
  return (first == '\0' || first == '\xFF') &&
         std::all_of(bytes.begin(), bytes.end(), [first](char c) { return c == first; });
}

bool is_printed_object(std::string_view text) {
  const SoifPtr object = parse(text);
  return object && print(object.get()) == text;
}

/// begin_of returns the offset of the object that ends at `end`, or std::nullopt if none of the last 64 "@" between
/// `floor` and `end` begins one.
std::optional<size_t> begin_of(const std::string &bytes, size_t floor, size_t end) {
  constexpr int tries = 64;
  size_t at = end;
  for (int i = 0; i < tries && at > floor; ++i) {
    at = bytes.rfind('@', at - 1);
    if (at == std::string::npos || at < floor) break;
    if (is_printed_object(std::string_view(bytes).substr(at, end - at))) return at;
  }
  return std::nullopt;
}

}  // namespace

RecoveryReader::RecoveryReader(const std::string &path)
    : file_(File::open(path)), size_(file_.size()), header_(stored_header()) {
  is_sound_ = header_.has_value();
  if (!header_) header_ = guessed_header();
  page_shift_ = header_ ? header_->page_shift : guessed_shift();
  const auto pages = static_cast<size_t>((size_ + (int64_t{1} << page_shift_) - 1) >> page_shift_);
  done_.resize(pages);
  unread_.resize(pages);
}

/// read returns zeros for bytes past the end of the file and for bytes that cannot be read.
std::string RecoveryReader::read(int64_t offset, size_t count) const {
  std::string bytes(count, '\0');
  const int64_t there = std::clamp<int64_t>(size_ - offset, 0, static_cast<int64_t>(count));
  try {
    file_.read_at(offset, bytes.data(), static_cast<size_t>(there));
  } catch (const Failure &) {
    std::fill(bytes.begin(), bytes.end(), '\0');
  }
  return bytes;
}

std::string RecoveryReader::read_page(uint64_t page) const {
  return read(static_cast<int64_t>(page << page_shift_), size_t{1} << page_shift_);
}

/// stored_header returns the header of the file if it is sound, even if the file is truncated.
std::optional<Header> RecoveryReader::stored_header() const {
  const std::string bytes = read(0, hashdb::header_size);
  const Header header = hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()));
  if (!is_sound(header, hashdb::default_hash, INT64_MAX)) return std::nullopt;
  return header;
}

/// guessed_header tries every layout that build_hash_file can give to a file of this size, and returns the one with the
/// highest score, or std::nullopt if no layout has a score above 0.
std::optional<Header> RecoveryReader::guessed_header() const {
  std::optional<Trailer> trailer;
  if (size_ >= 512) trailer = Trailer::read(file_);
  std::optional<Header> best;
  int most = 0;
  const auto consider = [&](const Header &header) {
    if (const int found = score(header); found > most) {
      most = found;
      best = header;
    }
  };
  for (uint32_t shift = hashdb::max_page_shift; shift >= hashdb::min_page_shift; --shift)
    for (uint32_t doublings = 1; doublings <= 24; ++doublings) {
      const int64_t overflow = (size_ >> shift) - hashdb::header_pages(shift) - (int64_t{1} << doublings);
      if (overflow < 1 || overflow > INT32_MAX) continue;
      const auto pages = static_cast<uint32_t>(overflow);
      const uint32_t planned = trailer ? trailer->planned_pages : pages;
      for (const Layout layout : {Layout::present, Layout::former})
        consider(planned_header(shift, doublings, planned, pages, layout));
    }
  return best;
}

/// score returns, for a sample of buckets, the records in the bucket of their key minus the others.
int RecoveryReader::score(const Header &header) const {
  const hashdb::Source source{file_.descriptor(), size_, header, hashdb::read_by_pread};
  Cursor cursor(source);
  const uint32_t step = std::max(1u, (header.max_bucket + 1) / sampled_buckets);
  int found = 0;
  for (uint32_t bucket = 0; bucket <= header.max_bucket; bucket += step) {
    cursor.start(bucket);
    Cursor::Result last = Cursor::end;
    while ((last = cursor.next()) == Cursor::record)
      found += number_of(cursor.key()) && bucket_of(header, hash_of(cursor.key())) == bucket ? 1 : -1;
    if (last == Cursor::damaged) --found;
  }
  return found;
}

/// guessed_shift returns the page shift with which scan_page finds most bytes of values.
uint32_t RecoveryReader::guessed_shift() const {
  uint32_t best = 12;
  size_t most = 0;
  for (uint32_t shift = hashdb::min_page_shift; shift <= hashdb::max_page_shift; ++shift) {
    size_t bytes = 0;
    for (int64_t at = 0; at < size_; at += int64_t{1} << shift)
      scan_page(read(at, size_t{1} << shift), [&](Origin, std::string_view key, std::string_view value) {
        if (number_of(key)) bytes += value.size();
      });
    if (bytes > most) best = shift;
    most = std::max(most, bytes);
  }
  return best;
}

/// The count in a file of the hash library, which has no trailer, may be too low or even below zero.
int64_t RecoveryReader::record_count() const {
  const bool is_reliable = is_sound_ && size_ >= 512 && Trailer::read(file_);
  return is_reliable ? std::max(static_cast<int32_t>(header_->records), 0) : 0;
}

void RecoveryReader::each(const Visitor &visit) {
  if (header_) {
    walk(visit);
    mark_free();
  }
  scan(visit);
}

/// walk visits the records of all buckets. It marks the pages of a bucket as done if it has read the bucket to its end.
void RecoveryReader::walk(const Visitor &visit) {
  const hashdb::Source source{file_.descriptor(), size_, *header_, hashdb::read_by_pread};
  Cursor cursor(source);
  std::vector<uint16_t> followed;
  cursor.watch([](void *pages, uint16_t address) { static_cast<std::vector<uint16_t> *>(pages)->push_back(address); },
               &followed);
  const auto mark = [&](uint64_t page) {
    if (page < done_.size()) done_[page] = true;
  };
  for (uint32_t page = 0; page < header_->header_pages; ++page) mark(page);
  for (uint32_t bucket = 0; bucket <= header_->max_bucket; ++bucket) {
    const uint64_t primary = bucket_page(*header_, bucket);
    if (primary >= done_.size()) continue;
    followed.clear();
    cursor.start(bucket);
    Cursor::Result last = Cursor::end;
    while ((last = cursor.next()) == Cursor::record) {
      const bool is_in_own_bucket = bucket_of(*header_, hash_of(cursor.key())) == bucket;
      visit(is_in_own_bucket ? in_bucket : on_page, cursor.key(), cursor.value());
    }
    if (last == Cursor::damaged) continue;
    mark(primary);
    for (const uint16_t address : followed) mark(overflow_page(*header_, address));
  }
}

/// mark_free marks free pages, whose records were erased or replaced, and the bitmaps as done.
void RecoveryReader::mark_free() {
  if (!is_sound_ || !Trailer::read(file_)) return;
  const auto mark = [&](uint64_t page) {
    if (page < done_.size()) done_[page] = true;
  };
  try {
    Header header = *header_;
    const PageAllocator pages(header, file_);
    for (uint32_t bit = 0; bit < header.spares[header.overflow_point]; ++bit)
      if (pages.is_free(bit)) mark(overflow_page(header, pages.address_of(bit)));
    for (const uint16_t address : header.bitmaps)
      if (address != 0) mark(overflow_page(header, address));
  } catch (const Failure &) {
    // Without bitmaps, scan reads all pages.
  }
}

/// scan visits the records on all pages that are not done.
void RecoveryReader::scan(const Visitor &visit) {
  for (uint64_t page = 0; page < done_.size(); ++page) {
    if (done_[page]) continue;
    const std::string bytes = read_page(page);
    if (scan_page(bytes, visit)) continue;
    unread_[page] = true;
    scan_raw(bytes, visit);
  }
}

/// scan_page visits the records on a page. Returns false if the page is not one of records.
bool RecoveryReader::scan_page(const std::string &bytes, const Visitor &visit) const {
  const Slots slots(bytes);
  if (is_blank(bytes)) return true;
  if (!slots.is_plausible() || slots.count() == 0) return false;
  if (slots.begins_long_record()) {
    follow_long(bytes, visit);
    return true;
  }
  // follow_long reads the other pages of a long record.
  if (slots[2] == slot_mark::full_key || slots[2] == slot_mark::full_key_data) return slots.data().has_value();
  size_t end = bytes.size();
  for (uint32_t slot = 1; slot < slots.count(); slot += 2) {
    const uint32_t key = slots[slot], value = slots[slot + 1];
    if (value < slot_mark::first_offset) return value == 0 && slot + 1 == slots.count();
    if (value < 2 * (slots.count() + 1) || value > key || key > end) return false;
    visit(on_page, std::string_view(bytes).substr(key, end - key), std::string_view(bytes).substr(value, key - value));
    end = value;
  }
  return true;
}

/// follow_long visits a record that is longer than a page, if all its pages can be read.
void RecoveryReader::follow_long(const std::string &first, const Visitor &visit) const {
  const Slots slots(first);
  const std::optional<std::string_view> key = slots.data();
  if (!header_ || !key || !number_of(*key)) return;
  std::string value = first.substr(slots[4], slots[1] - slots[4]);
  uint32_t address = slots[3];
  for (size_t steps = 0; steps < done_.size(); ++steps) {
    const uint64_t page = overflow_page(*header_, static_cast<uint16_t>(address));
    if (page == 0 || page >= done_.size()) return;
    const std::string bytes = read_page(page);
    const Slots more(bytes);
    const std::optional<std::string_view> data = more.data();
    if (!more.is_plausible() || more.count() < 2 || !data) return;
    value.append(*data);
    if (more[2] == slot_mark::full_key_data) return visit(on_page, *key, value);
    if (more[2] != slot_mark::full_key || more.count() < 4) return;
    address = more[more.count() - 1];
  }
}

/// scan_raw searches for "}\n" followed by a key: on a page, the key of a short record comes after its value.
void RecoveryReader::scan_raw(const std::string &bytes, const Visitor &visit) {
  size_t floor = 0;
  for (size_t at = bytes.find("}\n"); at != std::string::npos; at = bytes.find("}\n", at + 1)) {
    const size_t end = at + 2;
    const std::string_view key = std::string_view(bytes).substr(end, database_key_size);
    if (!number_of(key)) continue;
    const auto begin = begin_of(bytes, floor, end);
    if (!begin) continue;
    visit(in_bytes, key, std::string_view(bytes).substr(*begin, end - *begin));
    floor = end;
  }
}

std::vector<RecoveryReader::Range> RecoveryReader::unread() const {
  std::vector<Range> ranges;
  for (uint64_t page = 0; page < unread_.size(); ++page) {
    if (!unread_[page]) continue;
    if (!ranges.empty() && ranges.back().last + 1 == page)
      ranges.back().last = page;
    else
      ranges.push_back({page, page});
  }
  return ranges;
}

}  // namespace rdm::catalog
