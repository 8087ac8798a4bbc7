// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <iomanip>
#include <map>
#include <ostream>
#include <set>

#include "catalog/catalog.h"
#include "catalog/hash/statistics.h"
#include "catalog/record.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/describe.h"
#include "tools/minidba/output/progress.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

/// Records is the totals over all records.
struct Records {
  int64_t count = 0;
  int64_t bytes = 0;
  int64_t longest = 0;
  std::map<std::string, int64_t> attributes;  // with the number of descriptions that have them
};

void count(Records &records, std::string_view record, const SOIF *object) {
  const auto size = static_cast<int64_t>(record.size());
  ++records.count;
  records.bytes += size;
  records.longest = std::max(records.longest, size);
  std::set<std::string> names;
  each_attribute(object, [&](const AVPair &pair) { names.insert(pair.attribute); });
  for (const std::string &name : names) ++records.attributes[name];
}

Records records_of(const Catalog &catalog, const Console &console) {
  Records records;
  Progress progress(console, "counting");
  catalog.each([&](uint32_t number, std::string_view record) {
    count(records, record, parse_record(catalog, number, record).get());
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  return records;
}

/// by_frequency returns the attributes, the most frequent first.
std::vector<std::pair<std::string, int64_t>> by_frequency(const Records &records) {
  std::vector<std::pair<std::string, int64_t>> attributes(records.attributes.begin(), records.attributes.end());
  std::stable_sort(attributes.begin(), attributes.end(), [](auto &a, auto &b) { return a.second > b.second; });
  return attributes;
}

/// figures returns all figures except the counts of attributes. The fill is the share of the file that keys and records
/// take.
Json figures(const Catalog &catalog, const Records &records, const FileStatistics &layout) {
  const auto used = static_cast<double>(records.bytes + records.count * static_cast<int64_t>(database_key(0).size()));
  return {{"descriptions", records.count},
          {"bytes", records.bytes},
          {"longest", records.longest},
          {"next-number", catalog.next_number()},
          {"file-bytes", layout.file_bytes},
          {"page-size", layout.page_size},
          {"pages", layout.pages},
          {"buckets", layout.buckets},
          {"overflow-pages", layout.overflow_pages},
          {"fill-percent", std::lround(100 * used / static_cast<double>(layout.file_bytes))}};
}

void print_text(std::ostream &out, const Json &figures, const Records &records) {
  for (const auto &[name, value] : figures.items()) out << std::setw(12) << value.dump() << "  " << name << '\n';
  out << "attributes\n";
  for (const auto &[name, count] : by_frequency(records)) out << std::setw(12) << count << "  " << name << '\n';
}

void print_json(std::ostream &out, Json figures, const Records &records) {
  Json &attributes = figures["attributes"] = Json::object();
  for (const auto &[name, count] : by_frequency(records)) attributes[name] = count;
  out << text_of(figures) << '\n';
}

}  // namespace

int stats(const Options &options, const Console &console) {
  const Catalog catalog = open_to_read(options, console);
  const Records records = records_of(catalog, console);
  const Json figures = minidba::figures(catalog, records, statistics_of(options.database));
  options.json ? print_json(console.out, figures, records) : print_text(console.out, figures, records);
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
