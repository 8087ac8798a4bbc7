// SPDX-License-Identifier: MIT
#include "tools/minidba/writing.h"

#include <ostream>

#include "catalog/change_times.h"
#include "catalog/record.h"
#include "qxapi/escaped.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/progress.h"

namespace rdm::minidba {
namespace {

ProgressCallback shown_by(Progress &progress) {
  return [&progress](int64_t bytes, int64_t total) {
    progress.expect(total);
    progress.advance(0, bytes);
  };
}

}  // namespace

WriteSettings write_settings(const Options &options, const Console &console, IfMissing if_missing) {
  WriteSettings settings;
  settings.if_missing = if_missing;
  settings.dry_run = options.dry_run;
  settings.lock_timeout = options.wait;
  settings.waiting = [&](const std::string &text) {
    if (!options.quiet) console.errors << "minidba: " << escaped(text) << std::endl;
  };
  settings.damage = [&](const std::string &text) { console.errors << "minidba: " << escaped(text) << '\n'; };
  settings.prepare = [&](Catalog &catalog) { protect(catalog, options, console); };
  return settings;
}

void date(const WriteTransaction &transaction, WriteBatch &batch, const Console &console) {
  time_t now = 0;
  const std::optional<time_t> time = transaction.date(batch, [&] { return now = console.clock(); });
  if (time && is_ahead(*time, now))
    console.errors << "minidba: the clock is behind the newest time of change: changes get the time " << date_of(*time)
                   << '\n';
}

void commit(const WriteTransaction &transaction, const WriteBatch &batch, uint32_t next_number,
            const Console &console) {
  Progress progress(console, "writing");
  transaction.commit(batch, next_number, shown_by(progress));
}

void rebuild(const WriteTransaction &transaction, const WriteBatch &dropped, const Console &console) {
  Progress progress(console, "rebuilding");
  transaction.rebuild(dropped, shown_by(progress));
}

}  // namespace rdm::minidba
