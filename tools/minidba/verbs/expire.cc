#include "catalog/maintenance.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/progress.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {

int expire(const Options &options, const Console &console) {
  const WriteTransaction writing(options.database, write_settings(options, console));
  const Catalog &catalog = writing.catalog();
  Changes changes(catalog);
  {
    Progress progress(console, "expiring");
    erase_expired(catalog, console.clock(), changes, [&](int64_t bytes) { progress.advance(1, bytes); });
  }
  commit(writing, changes, catalog.next_number(), console);
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"expired", changes.count()}, details);
  return status_of_work(catalog);
}

}  // namespace minidba
