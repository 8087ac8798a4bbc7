// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/os/atomic_writer.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

using Write = std::function<void(const std::string &text)>;

/// write_all writes the whole catalog in the order of the numbers, and returns the number of descriptions.
int64_t write_all(const Catalog &catalog, const Write &write, bool watched, Progress &progress) {
  const std::vector<uint32_t> numbers = numbers_to_copy(catalog, progress);
  progress.clear();
  write(print_header({catalog.next_number(), static_cast<uint32_t>(numbers.size())}));
  for (const uint32_t number : numbers) {
    const std::string record = catalog.get(number).value_or("");
    write(with_number(print(parse_record(catalog, number, record).get()), number));
    if (watched) progress.advance(0, static_cast<int64_t>(record.size()));
  }
  return static_cast<int64_t>(numbers.size());
}

int64_t to_file(const Catalog &catalog, const std::string &path, Progress &progress) {
  AtomicWriter file(path);
  const int64_t count = write_all(
      catalog, [&](const std::string &text) { file.write(text); }, true, progress);
  file.finish();
  file.commit();
  return count;
}

int64_t to_nowhere(const Catalog &catalog, Progress &progress) {
  return write_all(
      catalog, [](const std::string &) {}, true, progress);
}

}  // namespace

int export_catalog(const Options &options, const Console &console) {
  Catalog catalog(options.database);
  protect(catalog, options, console);
  Progress progress(console, "exporting");
  if (options.file.empty()) {
    write_all(
        catalog, [&](const std::string &text) { console.out << text; }, !console.out_is_screen, progress);
    return status_of_work(catalog);
  }
  const int64_t count = options.dry_run ? to_nowhere(catalog, progress) : to_file(catalog, options.file, progress);
  progress.clear();
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"exported", count}, details);
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
