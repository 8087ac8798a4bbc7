// SPDX-License-Identifier: MIT
#include "catalog/hash/builder.h"

#include <libdeflate.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

using hashdb::Header;

constexpr uint32_t link_size = 4;  // bytes of a record's two slots
constexpr uint32_t min_shift = 12;
constexpr uint32_t min_doublings = 1;
constexpr uint32_t max_doublings = 24;
constexpr uint32_t spare_addresses = hashdb::split_pages / 2;  // for pages that later changes need

/// page_shift_for chooses a page size for eight records of average size and twice the longest, up to the largest one.
uint32_t page_shift_for(const std::vector<RecordRef> &refs) {
  uint64_t total = 0, longest = 0;
  for (const RecordRef &ref : refs) {
    const uint64_t size = uint64_t{ref.key_size} + ref.value_size + link_size;
    total += size;
    longest = std::max({longest, size, uint64_t{4} * ref.key_size});
  }
  const uint64_t wanted = std::max(2 * longest, refs.empty() ? 0 : 8 * (total / refs.size()));
  uint32_t shift = min_shift;
  while (shift < hashdb::max_page_shift && 1u << shift < wanted) ++shift;
  return shift;
}

Header header_for(uint32_t page_shift, uint32_t doublings, uint32_t count) {
  Header h{};
  h.magic = hashdb::magic;
  h.version = hashdb::version;
  h.byte_order = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? hashdb::little_endian : hashdb::big_endian;
  h.page_shift = page_shift;
  h.page_size = 1u << page_shift;
  h.segment_shift = hashdb::segment_shift;
  h.segment_size = 1u << h.segment_shift;
  h.low_mask = h.max_bucket = (1u << doublings) - 1;
  h.high_mask = (2u << doublings) - 1;
  h.directory_size = std::max(256u, (h.max_bucket >> h.segment_shift) + 1);
  h.overflow_point = doublings;
  h.records = count;
  h.fill_factor = 2 * (count >> doublings) + 1;
  h.header_pages = hashdb::header_pages(page_shift);
  h.hash_check = hashdb::hash_check(hashdb::default_hash);
  return h;
}

/// sort_by_bucket puts records in the order they are written in: by bucket, long records last.
void sort_by_bucket(const Header &header, std::vector<RecordRef> &refs) {
  // A planned table has no doubling in progress, so that the low bits of a hash are the bucket.
  const auto order = [&](const RecordRef &ref) {
    return std::pair(is_long(header, ref.key_size, ref.value_size), ref.offset);
  };
  std::sort(refs.begin(), refs.end(), [&, mask = header.max_bucket](const RecordRef &a, const RecordRef &b) {
    return (a.hash & mask) != (b.hash & mask) ? (a.hash & mask) < (b.hash & mask) : order(a) < order(b);
  });
}

uint64_t total_overflow(const Header &header, const std::vector<RecordRef> &refs) {
  uint64_t total = 0;
  for_each_bucket(header, refs, [&](uint32_t, const RecordRef *first, const RecordRef *last) {
    PageCount count(header);
    for (; first != last; ++first) count.add(first->key_size, first->value_size);
    total += count.pages();
  });
  return total;
}

uint32_t bitmaps_for(const Header &header, uint64_t pages) {
  return static_cast<uint32_t>(pages / (uint64_t{8} * header.page_size) + 1);
}

/// set_spares assigns the overflow pages to the doublings from `first` on.
void set_spares(Header &header, uint32_t pages, uint32_t first) {
  uint32_t placed = 0;
  for (uint32_t split = first; split <= header.overflow_point; ++split) {
    placed += std::min(pages - placed, hashdb::split_pages);
    header.spares[split] = placed;
  }
}

/// first_doubling returns the doubling of the first overflow page. The last one keeps addresses for later pages, which
/// are at the end of the file; the doublings before it are used only as far as it does not suffice. The hash library
/// mistakes a bucket in its memory for an overflow page whose address is the bucket's number, and then loses records or
/// crashes: late doublings have the highest addresses.
uint32_t first_doubling(const Header &header, uint32_t pages) {
  const uint32_t before_last = (pages + spare_addresses) / (hashdb::split_pages + 1);
  return header.overflow_point - std::min(before_last, header.overflow_point);
}

/// plan chooses the number of buckets: so many that the records would fill at most all of them, and more until there
/// are enough overflow addresses, spare ones included. Twice as many buckets would make the file larger by half and
/// more, and save a page for one record of twenty. Empty buckets are holes in the file.
Header plan(std::vector<RecordRef> &refs) {
  const uint32_t shift = page_shift_for(refs);
  uint64_t total = 0;
  Header header = header_for(shift, min_doublings, 0);
  for (const RecordRef &ref : refs)
    if (!is_long(header, ref.key_size, ref.value_size)) total += ref.key_size + ref.value_size + link_size;
  uint32_t doublings = min_doublings;
  while (doublings < max_doublings && uint64_t{1} << (shift + doublings) < total) ++doublings;
  for (; doublings <= max_doublings; ++doublings) {
    header = header_for(shift, doublings, static_cast<uint32_t>(refs.size()));
    sort_by_bucket(header, refs);
    uint64_t pages = total_overflow(header, refs);
    pages += bitmaps_for(header, pages + hashdb::doublings);
    const uint64_t addresses = uint64_t{doublings} * hashdb::split_pages;
    if (pages + (doublings < max_doublings ? spare_addresses : 0) > addresses) continue;
    set_spares(header, static_cast<uint32_t>(pages), first_doubling(header, static_cast<uint32_t>(pages)));
    return header;
  }
  throw Failure("the records are too many or too long for a catalog file");
}

/// Addresses returns the overflow addresses of a planned file in ascending order.
class Addresses {
 public:
  explicit Addresses(const Header &header) : header_(header) {}
  uint16_t next() {
    while (number_ == in_split()) ++split_, number_ = 0;
    return hashdb::overflow_address(split_, ++number_);
  }

 private:
  uint32_t in_split() const { return header_.spares[split_] - (split_ == 0 ? 0 : header_.spares[split_ - 1]); }
  const Header &header_;
  uint32_t split_ = 0;
  uint32_t number_ = 0;
};

/// write_bitmaps marks every overflow page as used, even those that do not exist yet: the hash library would use a page
/// whose bit is clear without counting it.
void write_bitmaps(const File &file, Header &header, Addresses &addresses) {
  const std::string bytes(header.page_size, '\xFF');
  for (uint32_t map = 0; map < bitmaps_for(header, header.spares[header.overflow_point]); ++map) {
    header.bitmaps[map] = addresses.next();
    const uint64_t page = overflow_page(header, header.bitmaps[map]);
    file.write_at(static_cast<int64_t>(page << header.page_shift), bytes);
  }
}

uint32_t checksum_of(const Record &record) {
  const uint32_t of_key = libdeflate_crc32(0, record.key.data(), record.key.size());
  return libdeflate_crc32(of_key, record.value.data(), record.value.size());
}

Header write_file(const File &file, std::vector<RecordRef> &refs, const RecordLoader &load, const Advance &advance) {
  Header header = plan(refs);
  Addresses addresses(header);
  write_bitmaps(file, header, addresses);
  header.last_freed = header.spares[header.overflow_point];
  RunWriter output(file);
  BucketWriter writer(header, output, [&] { return addresses.next(); });
  for_each_bucket(header, refs, [&](uint32_t bucket, RecordRef *first, const RecordRef *last) {
    writer.start(bucket);
    for (; first != last; ++first) {
      const Record record = load(*first);
      first->checksum = checksum_of(record);
      writer.add(record);
      if (advance) advance(1, int64_t{first->key_size} + first->value_size);
    }
    writer.finish();
  });
  output.flush();
  file.resize(static_cast<int64_t>(pages_of(header) << header.page_shift));
  write_header(file, header);
  return header;
}

/// reads_back returns true if the file holds exactly these records, each in its bucket.
bool reads_back(const std::string &path, const std::vector<RecordRef> &refs) {
  try {
    const HashTable table(path);
    BucketReader reader(table);
    auto ref = refs.begin();
    for (uint32_t bucket = 0; bucket <= table.header().max_bucket; ++bucket)
      for (reader.start(bucket); reader.next(); ++ref) {
        if (ref == refs.end() || bucket_of(table.header(), ref->hash) != bucket) return false;
        if (reader.key().size() != ref->key_size || reader.value().size() != ref->value_size) return false;
        if (checksum_of({reader.key(), reader.value()}) != ref->checksum) return false;
      }
    return ref == refs.end() && table.header().records == refs.size();
  } catch (const Failure &) {
    return false;
  }
}

}  // namespace

Header planned_header(uint32_t page_shift, uint32_t doublings, uint32_t planned, uint32_t overflow_pages,
                      Layout layout) {
  Header header = header_for(page_shift, doublings, 0);
  const uint32_t pages = std::min(planned, overflow_pages);
  set_spares(header, pages, layout == Layout::former ? 0 : first_doubling(header, pages));
  header.spares[header.overflow_point] = overflow_pages;
  return header;
}

uint64_t pages_of(const Header &header) {
  return uint64_t{header.header_pages} + header.max_bucket + 1 + header.spares[header.overflow_point];
}

void write_header(const File &file, const Header &header) {
  unsigned char bytes[hashdb::header_size];
  encode(header, bytes);
  file.write_at(0, {reinterpret_cast<const char *>(bytes), sizeof bytes});
}

void build_hash_file(const File &file, std::vector<RecordRef> &refs, const RecordLoader &load, Trailer trailer,
                     const Advance &advance) {
  const Header header = write_file(file, refs, load, advance);
  trailer.planned_pages = header.spares[header.overflow_point];
  trailer.write(file);
  if (!reads_back(file.name(), refs))
    throw Failure("cannot verify " + file.name() + ": it does not contain what was written");
}

}  // namespace rdm::catalog
