#include "tools/minidba/hash_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "tools/minidba/failure.h"

namespace minidba {
namespace {

using hash_file::Header;

constexpr uint32_t slot_size = 2;
constexpr uint32_t link_size = 2 * slot_size;
constexpr uint32_t full_key = 2;  // slots of long records, see dba/walker.cc
constexpr uint32_t full_key_data = 3;
constexpr uint32_t min_shift = 12;
constexpr uint32_t min_doublings = 1;
constexpr uint32_t max_doublings = 24;

constexpr uint32_t meta(uint32_t slots) { return slot_size * (slots + 3); }
constexpr uint32_t long_overhead = meta(4);

/// write_at writes all of `bytes`.
void write_at(int file, uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t put = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) throw system_failure("cannot write the new hash file");
    bytes.remove_prefix(static_cast<size_t>(put));
    offset += static_cast<uint64_t>(put);
  }
}

/// page_shift_for chooses pages that hold at least eight usual records and twice the longest, as far as pages go.
uint32_t page_shift_for(const std::vector<Item> &items) {
  uint64_t total = 0, longest = 0;
  for (const Item &item : items) {
    const uint64_t size = uint64_t{item.key_size} + item.value_size + link_size;
    total += size;
    longest = std::max({longest, size, uint64_t{4} * item.key_size});
  }
  const uint64_t wanted = std::max(2 * longest, items.empty() ? 0 : 8 * (total / items.size()));
  uint32_t shift = min_shift;
  while (shift < hash_file::max_page_shift && 1u << shift < wanted) ++shift;
  return shift;
}

Header header_for(uint32_t page_shift, uint32_t doublings, uint32_t count) {
  Header h{};
  h.magic = hash_file::magic;
  h.version = hash_file::version;
  h.byte_order = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? hash_file::little_endian : hash_file::big_endian;
  h.page_shift = page_shift;
  h.page_size = 1u << page_shift;
  h.segment_shift = hash_file::segment_shift;
  h.segment_size = 1u << h.segment_shift;
  h.low_mask = h.max_bucket = (1u << doublings) - 1;
  h.high_mask = (2u << doublings) - 1;
  h.directory_size = std::max(256u, (h.max_bucket >> h.segment_shift) + 1);
  h.overflow_point = doublings;
  h.records = count;
  h.fill_factor = 2 * (count >> doublings) + 1;
  h.header_pages = hash_file::header_pages(page_shift);
  h.hash_check = hash_file::hash_check(hash_file::default_hash);
  return h;
}

/// for_each_bucket calls a procedure with each bucket that has items, and their range.
template <typename Procedure>
void for_each_bucket(const Header &header, const std::vector<Item> &items, Procedure procedure) {
  for (auto first = items.data(), end = first + items.size(); first != end;) {
    const uint32_t bucket = bucket_of(header, first->hash);
    auto last = first;
    while (last != end && bucket_of(header, last->hash) == bucket) ++last;
    procedure(bucket, first, last);
    first = last;
  }
}

uint64_t total_overflow(const Header &header, const std::vector<Item> &items) {
  uint64_t total = 0;
  for_each_bucket(header, items,
                  [&](uint32_t, const Item *first, const Item *last) { total += overflow_pages(header, first, last); });
  return total;
}

uint32_t bitmaps_for(const Header &header, uint64_t pages) {
  return static_cast<uint32_t>(pages / (header.page_size * 8) + 1);
}

/// set_spares spreads the overflow pages over the doublings from the first on, so that the last, whose pages lie at the
/// end of the file, keeps room for later ones.
void set_spares(Header &header, uint32_t pages) {
  uint32_t placed = 0;
  for (uint32_t split = 0; split <= header.overflow_point; ++split) {
    placed += std::min(pages - placed, hash_file::split_pages);
    header.spares[split] = placed;
  }
}

/// plan chooses the size of the table: buckets three quarters full, and more of them while there are not enough
/// overflow addresses for what does not fit. Empty buckets are holes in the file.
Header plan(std::vector<Item> &items) {
  const uint32_t shift = page_shift_for(items);
  uint64_t total = 0;
  Header header = header_for(shift, min_doublings, 0);
  for (const Item &item : items)
    if (!is_long(header, item.key_size, item.value_size)) total += item.key_size + item.value_size + link_size;
  uint32_t doublings = min_doublings;
  while (doublings < max_doublings && (uint64_t{3} << (shift + doublings)) / 4 < total) ++doublings;
  for (; doublings <= max_doublings; ++doublings) {
    header = header_for(shift, doublings, static_cast<uint32_t>(items.size()));
    sort_by_bucket(header, items);
    uint64_t pages = total_overflow(header, items);
    pages += bitmaps_for(header, pages + hash_file::doublings);
    if (pages > uint64_t{doublings} * hash_file::split_pages) continue;
    set_spares(header, static_cast<uint32_t>(pages));
    return header;
  }
  throw Failure("the records are too many or too long for a catalog file");
}

/// Addresses hands out the overflow addresses of a planned file one after the other.
class Addresses {
 public:
  explicit Addresses(const Header &header) : header_(header) {}
  uint16_t next() {
    while (number_ == in_split()) ++split_, number_ = 0;
    return hash_file::overflow_address(split_, ++number_);
  }

 private:
  uint32_t in_split() const { return header_.spares[split_] - (split_ == 0 ? 0 : header_.spares[split_ - 1]); }
  const Header &header_;
  uint32_t split_ = 0;
  uint32_t number_ = 0;
};

/// write_bitmaps marks every overflow page as used, and those that do not exist as well, as the library does.
void write_bitmaps(int file, Header &header, Addresses &addresses) {
  const uint32_t pages = header.spares[header.overflow_point];
  const uint32_t bits = header.page_size * 8;
  for (uint32_t map = 0; map < bitmaps_for(header, pages); ++map) {
    std::string bytes(header.page_size, '\0');
    for (uint32_t bit = map * bits; bit < std::min(pages, (map + 1) * bits); ++bit)
      bytes[(bit % bits) / 8] = static_cast<char>(bytes[(bit % bits) / 8] | 1 << bit % 8);
    header.bitmaps[map] = addresses.next();
    const uint64_t page = overflow_page(header, header.bitmaps[map]);
    write_at(file, page << header.page_shift, bytes);
  }
}

void write_header(int file, const Header &header) {
  unsigned char bytes[hash_file::header_size];
  encode(header, bytes);
  write_at(file, 0, {reinterpret_cast<const char *>(bytes), sizeof bytes});
}

uint64_t pages_of(const Header &header) {
  return uint64_t{header.header_pages} + header.max_bucket + 1 + header.spares[header.overflow_point];
}

}  // namespace

bool is_long(const Header &header, uint32_t key_size, uint32_t value_size) {
  return uint64_t{key_size} + value_size + meta(2) + link_size > header.page_size;
}

uint32_t overflow_pages(const Header &header, const Item *first, const Item *last) {
  uint32_t pages = 0, used = meta(0) + link_size;
  for (; first != last && !is_long(header, first->key_size, first->value_size); ++first) {
    const uint32_t size = first->key_size + first->value_size + link_size;
    const bool fits = used + size <= header.page_size;
    pages += fits ? 0 : 1;
    used = (fits ? used : meta(0) + link_size) + size;
  }
  const uint32_t room = header.page_size - long_overhead;
  for (; first != last; ++first) pages += (first->key_size + first->value_size + room - 1) / room;
  return pages;
}

void sort_by_bucket(const Header &header, std::vector<Item> &items) {
  const auto order = [&](const Item &item) {
    return std::tuple(bucket_of(header, item.hash), is_long(header, item.key_size, item.value_size), item.place);
  };
  std::sort(items.begin(), items.end(), [&](const Item &a, const Item &b) { return order(a) < order(b); });
}

BucketWriter::BucketWriter(const Header &header, int file, Allocate allocate)
    : header_(header), file_(file), allocate_(std::move(allocate)), page_(header.page_size, '\0') {}

void BucketWriter::clear() {
  std::fill(page_.begin(), page_.end(), '\0');
  slots_ = 0;
  data_start_ = header_.page_size;
}

void BucketWriter::set(uint32_t index, uint32_t number) {
  const auto half = static_cast<uint16_t>(number);
  std::memcpy(&page_[slot_size * index], &half, sizeof half);
}

void BucketWriter::start(uint32_t bucket) {
  page_number_ = bucket_page(header_, bucket);
  clear();
}

/// flush writes the page, with its last numbers: free bytes and where the data starts.
void BucketWriter::flush(uint64_t next_page) {
  set(0, slots_);
  set(slots_ + 1, data_start_ - meta(slots_));
  set(slots_ + 2, data_start_);
  write_at(file_, page_number_ << header_.page_shift, page_);
  page_number_ = next_page;
  clear();
}

/// chain links the page to a new overflow page and goes on there; returns that page's number.
uint64_t BucketWriter::chain() {
  const uint16_t address = allocate_();
  set(slots_ + 1, address);
  set(slots_ + 2, 0);
  slots_ += 2;
  const uint64_t page = overflow_page(header_, address);
  flush(page);
  return page;
}

void BucketWriter::add(const Record &record) {
  if (is_long(header_, static_cast<uint32_t>(record.key.size()), static_cast<uint32_t>(record.value.size()))) {
    chain();
    put_long(record);
  } else {
    const size_t size = record.key.size() + record.value.size() + link_size;
    if (meta(slots_) + link_size + size > data_start_) chain();
    put(record);
  }
}

void BucketWriter::put(const Record &record) {
  data_start_ -= static_cast<uint32_t>(record.key.size());
  set(slots_ + 1, data_start_);
  record.key.copy(&page_[data_start_], record.key.size());
  data_start_ -= static_cast<uint32_t>(record.value.size());
  set(slots_ + 2, data_start_);
  record.value.copy(page_.data() + data_start_, record.value.size());
  slots_ += 2;
}

/// put_long fills the page with the key and the beginning of the value, and overflow pages with the rest. The last page
/// stays open, so that it can be linked to the next record.
void BucketWriter::put_long(const Record &record) {
  const auto key_size = static_cast<uint32_t>(record.key.size());
  const uint32_t key_start = header_.page_size - key_size;
  record.key.copy(&page_[key_start], key_size);
  std::string_view rest = record.value;
  const uint32_t room = key_start - long_overhead;
  rest.substr(0, room).copy(&page_[long_overhead], room);
  rest.remove_prefix(room);
  const uint16_t address = allocate_();
  set(1, key_start), set(2, full_key_data), set(3, address), set(4, long_overhead);
  slots_ = 4;
  data_start_ = long_overhead;
  flush(overflow_page(header_, address));
  for (bool last = false; !last;) {
    const uint32_t size = std::min<uint32_t>(static_cast<uint32_t>(rest.size()), header_.page_size - long_overhead);
    last = size == rest.size();
    data_start_ = header_.page_size - size;
    rest.substr(0, size).copy(&page_[data_start_], size);
    rest.remove_prefix(size);
    set(1, data_start_), set(2, last ? full_key_data : full_key);
    slots_ = 2;
    if (!last) chain();
  }
}

void BucketWriter::finish() { flush(0); }

void write_hash_file(int file, std::vector<Item> &items, const Fetch &fetch) {
  Header header = plan(items);
  Addresses addresses(header);
  write_bitmaps(file, header, addresses);
  header.last_freed = header.spares[header.overflow_point];
  BucketWriter writer(header, file, [&] { return addresses.next(); });
  for_each_bucket(header, items, [&](uint32_t bucket, const Item *first, const Item *last) {
    writer.start(bucket);
    for (; first != last; ++first) writer.add(fetch(*first));
    writer.finish();
  });
  if (::ftruncate(file, static_cast<off_t>(pages_of(header) << header.page_shift)) != 0)
    throw system_failure("cannot write the new hash file");
  write_header(file, header);
}

}  // namespace minidba
