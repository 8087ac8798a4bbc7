#include "tools/minidba/writing.h"

#include "tools/common/escaped.h"
#include "tools/minidba/change_times.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/progress.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

Lock lock_of(const Options &options, const Console &console) {
  return Lock(options.database, options.wait, [&](const std::string &text) {
    if (!options.quiet) console.errors << "minidba: " << tools::escaped(text) << std::endl;
  });
}

Watch watched_by(Progress &progress) {
  return [&progress](int64_t bytes, int64_t total) {
    progress.expect(total);
    progress.advance(0, bytes);
  };
}

}  // namespace

std::optional<Lock> lock_for(const Options &options, const Console &console, Absent absent) {
  if (absent == Absent::error && !status_of(options.database)) throw Failure("not there: " + options.database);
  if (options.dry_run) return std::nullopt;
  return lock_of(options, console);
}

Writing::Writing(const Options &options, const Console &console, Absent absent)
    : console_(console), lock_(lock_for(options, console, absent)), catalog_(options.database, absent) {
  protect(catalog_, options, console);
  if (absent == Absent::error) begin();
}

void Writing::begin() {
  if (catalog_.is_partial()) return;
  if (catalog_.drop_damaged_map())
    console_.errors << "minidba: damaged: " << tools::escaped(UrlMap::path_for(catalog_.path()))
                    << ": the URLs are read from the records\n";
  if (lock_) catalog_.renew_url_map(*lock_);
}

void Writing::stamp(Changes &changes, const Console &console) const {
  if (!lock_ || !changes.is_undated()) return;
  // Looking for the newest time may take a while, so the clock is read afterwards.
  const time_t newest = std::max(catalog_.newest_change(), changes.newest_change());
  const time_t clock = console.clock(), time = next_change(newest, clock);
  if (is_ahead(time, clock))
    console.errors << "minidba: the clock is behind the catalog: what changes now gets the time " << date_of(time)
                   << '\n';
  changes.stamp(time);
}

void Writing::commit(const Changes &changes, uint32_t next_number, const Console &console) const {
  if (!lock_) return check_copy(catalog_, changes);
  Progress progress(console, "writing");
  minidba::commit(*lock_, catalog_, changes, next_number, watched_by(progress));
}

void Writing::rebuild(const Changes &dropped, const Console &console) const {
  if (!lock_) return;
  Progress progress(console, "rebuilding");
  rebuild_catalog(*lock_, catalog_, dropped, watched_by(progress));
}

}  // namespace minidba
