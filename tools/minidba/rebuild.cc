#include <algorithm>

#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"
#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

/// Rebuilding writes database and URL map of a catalog from its records alone.
class Rebuilding {
 public:
  Rebuilding(const Catalog &catalog, Progress &progress) : catalog_(catalog), progress_(progress) {
    catalog_.each([this](uint32_t number, std::string_view record) {
      urls_.add(view(catalog_, number, record, {})->url, number);
      const std::string key = database_key(number);
      shape_.add(static_cast<int64_t>(key.size()), static_cast<int64_t>(record.size()));
      progress_.advance(0, static_cast<int64_t>(record.size()));
    });
    urls_.sort();
    // The records are gone through twice more, to be written and compared.
    progress_.expect(3 * shape_.bytes);
  }
  int64_t descriptions() const { return shape_.records; }

  void write() {
    Snapshot database(catalog_.path());
    write_hash_table(database.path(), shape_, [this](const HashTable::Visit &put) { each_record(put); });
    database.sync();
    Snapshot map(UrlMap::path_for(catalog_.path()));
    UrlMap::write(map, database.path(), next_number(), [this](const UrlMap::Visit &put) { each_url(put); });
    // The database first: a map that is behind is noticed and made anew.
    database.commit();
    map.commit();
  }

 private:
  void each_record(const HashTable::Visit &put) const {
    catalog_.each([&](uint32_t number, std::string_view record) {
      put(database_key(number), record);
      progress_.advance(0, static_cast<int64_t>(record.size()));
    });
  }
  void each_url(const UrlMap::Visit &put) const {
    catalog_.each([&](uint32_t number, std::string_view record) {
      const std::string url = view(catalog_, number, record, {})->url;
      if (is_lowest(url, number)) put(url, number);
    });
  }
  /// is_lowest says whether no description with a lower number has the same URL.
  bool is_lowest(const std::string &url, uint32_t number) const {
    for (const uint32_t other : urls_.candidates(url)) {
      if (other == number) return true;
      if (url_of(catalog_.get(other).value_or("")) == url) return false;
    }
    return true;
  }
  /// next_number returns 0 when none is left.
  uint32_t next_number() const {
    const uint32_t known = catalog_.next_number(), free = urls_.next_number();
    return known == 0 || free == 0 ? 0 : std::max(known, free);
  }

  const Catalog &catalog_;
  Progress &progress_;
  UrlScan urls_;
  Shape shape_;
};

}  // namespace

int rebuild(const Options &options, const Console &console) {
  const Writing writing(options);
  Progress progress(console, "rebuilding");
  Rebuilding rebuilding(writing.catalog(), progress);
  if (!writing.is_dry()) rebuilding.write();
  progress.clear();
  report(options, console, {"rebuilt", rebuilding.descriptions()});
  return exit_done;
}

}  // namespace minidba
