// SPDX-License-Identifier: MIT
#include "catalog/maintenance.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/progress.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {

int expire(const Options &options, const Console &console) {
  const WriteTransaction transaction(options.database, write_settings(options, console));
  const Catalog &catalog = transaction.catalog();
  WriteBatch batch(catalog);
  {
    Progress progress(console, "expiring");
    erase_expired(catalog, console.clock(), batch, [&](int64_t bytes) { progress.advance(1, bytes); });
  }
  commit(transaction, batch, catalog.next_number(), console);
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"expired", batch.count()}, details);
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
