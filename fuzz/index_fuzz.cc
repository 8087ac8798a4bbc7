// SPDX-License-Identifier: MIT
/// Reads any bytes as the index of a catalog and searches it, compared with models that read the file number by number
/// and search recursively. The first four bytes are the time to search for.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"
#include "service/csid.h"
#include "service/rdm.h"

using namespace rdm;

namespace {

constexpr char csid[] = "x-catalog://localhost:80/a";

/// Catalog is a service whose index is replaced by each input.
struct Catalog {
  Catalog() {
    directory.write("csid.conf",
                    std::string("csid=\"") + csid + "\" catalog-database=\"" + directory.path("db") + "\"\n");
    fuzz::require(csid_init(directory.path("csid.conf").c_str(), csid) == 0, "csid_init failed");
  }
  fuzz::TemporaryDirectory directory;
};

uint32_t number(std::string_view file, size_t at) {
  file.remove_prefix(at);
  return static_cast<uint32_t>(fuzz::take(file, 4));
}

/// is_index returns true if the file has the magic number and at least as many entries as it declares.
bool is_index(std::string_view file) {
  return file.size() >= 8 && number(file, 0) == 0x3eb1ca0e && (file.size() - 8) / 20 >= number(file, 4);
}

void check_entries(std::string_view file, const cs_dbindex &index) {
  fuzz::require(index.count == number(file, 4), "the count is not that of the file");
  for (size_t i = 0, at = 8; i < index.count; ++i) {
    const cs_dbentry &entry = index.entries[i];
    for (const uint32_t field : {entry.time, entry.reserved1, entry.key, entry.reserved2, entry.reserved3}) {
      fuzz::require(field == number(file, at), "a field of an entry is not that of the file");
      at += 4;
    }
  }
}

/// check_short checks a refused index: its count is kept, and its entries are those complete in the file followed by
/// zeros, or there are none.
void check_short(std::string_view file, const cs_dbindex &index) {
  const bool has_mark = file.size() >= 8 && number(file, 0) == 0x3eb1ca0e;
  fuzz::require(index.count == (has_mark ? number(file, 4) : 0), "the count of a refused index is wrong");
  fuzz::require(has_mark || index.entries == nullptr, "a file without the magic number has entries");
  if (index.entries == nullptr) {
    fuzz::require(cs_dbsearch(&index, 1) == -1, "a search found a position without entries");
    return;
  }
  std::string whole(file.substr(8, (file.size() - 8) / 20 * 20));
  whole.resize(size_t{index.count} * 20);
  check_entries(std::string(file.substr(0, 8)) + whole, index);
}

struct Model {
  std::vector<int64_t> times;
  int64_t since;

  int64_t last() const { return static_cast<int64_t>(times.size()) - 1; }
  bool is_late(int64_t i) const { return times[static_cast<size_t>(i)] >= since; }
  int64_t search(int64_t low, int64_t high) const;
  bool is_answer(int64_t found) const;
};

/// search is the model: it returns the count, which means that nothing is to be sent, if it reaches the last entry;
/// otherwise an entry of exactly that time, or one of the two around it.
int64_t Model::search(int64_t low, int64_t high) const {
  if (low <= high) {
    const int64_t middle = low + (high - low) / 2;
    if (middle >= last()) return last() + 1;
    if (!is_late(middle)) return search(middle + 1, high);
    return times[static_cast<size_t>(middle)] == since ? middle : search(low, middle - 1);
  }
  const int64_t before = std::max<int64_t>(high, 0);
  if (is_late(before)) return before;
  return is_late(low) ? low : -1;
}

/// is_answer checks a result in a sorted index against every entry: it must be an entry of exactly that time or the
/// first later one, or the count if no entry but the last is as late.
bool Model::is_answer(int64_t found) const {
  const auto first = std::find_if(times.begin(), times.end(), [this](int64_t time) { return time >= since; });
  const int64_t position = first - times.begin();
  if (position >= last()) return found == last() + 1;
  return found == position || (found > position && found < last() && times[static_cast<size_t>(found)] == since);
}

void check_search(const cs_dbindex &index, int64_t since) {
  const int32_t found = cs_dbsearch(&index, since);
  Model model{{}, since};
  for (uint32_t i = 0; i < index.count; ++i) model.times.push_back(index.entries[i].time);
  fuzz::require(found == (index.count == 0 ? -1 : model.search(0, model.last())),
                "a search returned another position than the model");
  if (index.count > 0 && std::is_sorted(model.times.begin(), model.times.end()))
    fuzz::require(model.is_answer(found), "a search in a sorted index returned a wrong position");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Catalog catalog;
  std::string_view input = fuzz::text(data, size);
  const auto since = static_cast<int64_t>(fuzz::take(input, 4));
  catalog.directory.write("db.idx", input);
  cs_dbindex index{};
  const int result = cs_dbsearch_start(csid, &index);
  const HostPtr<cs_dbentry> entries(index.entries);
  fuzz::require(result == (is_index(input) ? 0 : 1),
                "cs_dbsearch_start accepted a malformed index or refused a valid one");
  if (result != 0) {
    check_short(input, index);
    return 0;
  }
  check_entries(input, index);
  check_search(index, since);
  return 0;
}
