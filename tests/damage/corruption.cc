// SPDX-License-Identifier: MIT
#include "damage/corruption.h"

#include <algorithm>
#include <random>

#include "damage/pages.h"

namespace rdm::damage {
namespace {

constexpr size_t index_header = 8, index_entry = 20;
constexpr const char *names[] = {"the database", "the index", "the URL map"};

/// Dice are random numbers that are the same wherever the tests run.
class Dice {
 public:
  explicit Dice(uint32_t seed) : random_(seed) {}
  size_t below(size_t limit) { return random_() % limit; }
  template <typename T>
  const T &one_of(const std::vector<T> &list) {
    return list.at(below(list.size()));
  }
  char byte() { return static_cast<char>(random_()); }

 private:
  std::mt19937 random_;
};

/// part_for chooses the database in seven of ten cases.
Part part_for(const Files &files, Dice &dice) {
  const size_t face = dice.below(10);
  const Part part = face < 7 ? database : (face < 9 ? index_file : url_map);
  return files[part].empty() ? database : part;
}

size_t place_in_hash_file(const std::string &bytes, Dice &dice) {
  const HashPages pages(bytes);
  const size_t slots = 64;
  std::vector<uint64_t> used = pages.primary;
  used.insert(used.end(), pages.overflow.begin(), pages.overflow.end());
  switch (dice.below(8)) {
    case 0:
      return dice.below(hashdb::header_size);
    case 1:
      return dice.below(512);
    case 2:
    case 3:
    case 4:
      return pages.start(dice.one_of(used)) + dice.below(slots);
    case 5:
      return pages.start(dice.one_of(pages.bitmaps)) +
             dice.below(std::max<size_t>(pages.header.spares[pages.header.overflow_point] / 8, 1));
    default:
      return dice.below(bytes.size());
  }
}

/// Page is the page to damage, in the bytes of its file.
struct Page {
  std::string &bytes;
  size_t start, size;
};

std::string zero(const Page &page, Dice &) {
  std::fill_n(page.bytes.begin() + static_cast<std::ptrdiff_t>(page.start), page.size, '\0');
  return "zeroed";
}

std::string randomise(const Page &page, Dice &dice) {
  std::generate_n(page.bytes.begin() + static_cast<std::ptrdiff_t>(page.start), page.size, [&] { return dice.byte(); });
  return "filled with random bytes";
}

std::string cut(const Page &page, Dice &dice) {
  const size_t rest = dice.below(2) == 0 ? 0 : dice.below(page.size);
  page.bytes.resize(page.start + rest);
  return "cut off after " + std::to_string(rest) + " of its bytes";
}

/// other_start returns the start of a page of the same file.
size_t other_start(const Page &page, Dice &dice) {
  const size_t first = page.start % page.size;
  return first + dice.below((page.bytes.size() - first) / page.size) * page.size;
}

std::string swap(const Page &page, Dice &dice) {
  const size_t other = other_start(page, dice);
  const std::string held = page.bytes.substr(page.start, page.size);
  page.bytes.replace(page.start, page.size, page.bytes, other, page.size);
  page.bytes.replace(other, page.size, held);
  return "swapped with the one at " + std::to_string(other);
}

std::string copy(const Page &page, Dice &dice) {
  const size_t other = other_start(page, dice);
  page.bytes.replace(page.start, page.size, std::string(page.bytes, other, page.size));
  return "replaced by the one at " + std::to_string(other);
}

/// half_written is the state after a power failure while zeros were written to a page.
std::string half_written(const Page &page, Dice &dice) {
  const size_t written = dice.below(page.size);
  std::fill_n(page.bytes.begin() + static_cast<std::ptrdiff_t>(page.start), written, '\0');
  return "zero up to " + std::to_string(written);
}

using Spoil = std::string (*)(const Page &, Dice &);
constexpr Spoil spoils[] = {zero, randomise, cut, swap, copy, half_written};

std::string spoil_index(std::string &bytes, Dice &dice) {
  const size_t entry = dice.below((bytes.size() - index_header) / index_entry);
  const std::string did =
      spoils[dice.below(std::size(spoils))]({bytes, index_header + entry * index_entry, index_entry}, dice);
  return "entry " + std::to_string(entry) + " " + did;
}

/// mislead links a page of a bucket to a wrong page: another one of this or another bucket, a bitmap, a free page or
/// none.
std::string mislead(std::string &bytes, const HashPages &pages, Dice &dice) {
  const HashPages::Link link = dice.one_of(pages.links);
  const auto split = static_cast<uint32_t>(dice.below(pages.header.overflow_point + 1));
  const uint32_t total = pages.header.spares[pages.header.overflow_point];
  const auto any = hashdb::overflow_address(split, static_cast<uint32_t>(1 + dice.below(total + 1)));
  const HashPages::Link other = dice.one_of(pages.links);
  const uint16_t to = dice.below(3) == 0 ? any : slot(bytes, pages.start(other.page), other.index);
  set_slot(bytes, pages.start(link.page), link.index, to);
  return "page " + std::to_string(link.page) + " goes on at address " + std::to_string(to);
}

/// misplace replaces a page with one of another kind.
std::string misplace(std::string &bytes, const HashPages &pages, Dice &dice) {
  std::vector<const std::vector<uint64_t> *> kinds;
  for (const auto *kind : {&pages.primary, &pages.overflow, &pages.bitmaps})
    if (!kind->empty()) kinds.push_back(kind);
  const size_t to_kind = dice.below(kinds.size());
  const size_t from_kind = (to_kind + 1 + dice.below(kinds.size() - 1)) % kinds.size();
  const uint64_t to = dice.one_of(*kinds[to_kind]), from = dice.one_of(*kinds[from_kind]);
  bytes.replace(pages.start(to), pages.header.page_size, std::string(bytes, pages.start(from), pages.header.page_size));
  return "page " + std::to_string(to) + " replaced by " + std::to_string(from) + ", which is of another kind";
}

std::string spoil_bitmap(std::string &bytes, const HashPages &pages, Dice &dice) {
  const Page page{bytes, pages.start(dice.one_of(pages.bitmaps)), pages.header.page_size};
  return "a page of bits " + spoils[dice.below(2)](page, dice);
}

std::string spoil_hash_file(std::string &bytes, Dice &dice) {
  const std::string before = bytes;
  const HashPages pages(before);
  const size_t face = dice.below(10);
  if (face < 2 && !pages.links.empty()) return mislead(bytes, pages, dice);
  if (face < 4 && !pages.overflow.empty()) return misplace(bytes, pages, dice);
  if (face < 5) return spoil_bitmap(bytes, pages, dice);
  const uint64_t page = dice.below(pages.count());
  return "page " + std::to_string(page) + " " +
         spoils[dice.below(std::size(spoils))]({bytes, pages.start(page), pages.header.page_size}, dice);
}

}  // namespace

Corruption flip_bit(const Files &files, uint32_t seed) {
  Dice dice(seed);
  Corruption result{"", files};
  const Part part = part_for(files, dice);
  std::string &bytes = result.files[part];
  const size_t place = part == index_file ? dice.below(bytes.size()) : place_in_hash_file(bytes, dice);
  const size_t bit = dice.below(8);
  bytes.at(place) = static_cast<char>(bytes.at(place) ^ 1 << bit);
  result.what = std::string(names[part]) + ": bit " + std::to_string(bit) + " of byte " + std::to_string(place);
  return result;
}

Corruption spoil_page(const Files &files, uint32_t seed) {
  Dice dice(seed);
  Corruption result{"", files};
  const Part part = part_for(files, dice);
  std::string &bytes = result.files[part];
  result.what =
      std::string(names[part]) + ": " + (part == index_file ? spoil_index(bytes, dice) : spoil_hash_file(bytes, dice));
  return result;
}

}  // namespace rdm::damage
