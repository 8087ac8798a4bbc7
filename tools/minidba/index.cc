#include <algorithm>
#include <optional>

#include "tools/minidba/index_file.h"
#include "tools/minidba/record.h"
#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/snapshot.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

std::vector<IndexEntry> entries_of(const Catalog &catalog, const Console &console) {
  std::vector<IndexEntry> entries;
  Progress progress(console, "indexing");
  catalog.each([&](uint32_t number, std::string_view record) {
    const soif_ptr object = view(catalog, number, record, {"rd-last-changed"});
    entries.push_back(entry_of(number, record, change_time(object.get())));
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(entries.begin(), entries.end(), precedes);
  return entries;
}

void write(const std::string &path, const std::string &database, const std::vector<IndexEntry> &entries) {
  Snapshot snapshot(path, database);
  snapshot.file().write_at(0, encode(entries));
  snapshot.sync();
  snapshot.commit();
}

}  // namespace

int index(const Options &options, const Console &console) {
  const std::optional<Lock> lock = lock_for(options, console, Absent::error);
  const std::vector<IndexEntry> entries = entries_of(Catalog(options.database), console);
  if (!options.dry_run) write(options.index, options.database, entries);
  report(options, console, {"indexed", static_cast<int64_t>(entries.size())});
  return exit_done;
}

}  // namespace minidba
