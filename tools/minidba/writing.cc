#include "tools/minidba/writing.h"

#include "tools/minidba/failure.h"
#include "tools/minidba/progress.h"

namespace minidba {
namespace {

/// lock_for leaves no lock file beside a catalog that is not there.
std::optional<Lock> lock_for(const Options &options, Absent absent) {
  if (absent == Absent::error && !status_of(options.database)) throw Failure("not there: " + options.database);
  return options.dry_run ? std::nullopt : std::optional<Lock>(std::in_place, options.database);
}

Watch watched_by(Progress &progress) {
  return [&progress](int64_t bytes, int64_t total) {
    progress.expect(total);
    progress.advance(0, bytes);
  };
}

}  // namespace

Writing::Writing(const Options &options, Absent absent)
    : lock_(lock_for(options, absent)), catalog_(options.database, absent) {
  if (lock_) catalog_.renew_url_map(*lock_);
}

void Writing::commit(const Changes &changes, uint32_t next_number, const Console &console) const {
  if (!lock_) return;
  Progress progress(console, "writing");
  minidba::commit(*lock_, catalog_, changes, next_number, watched_by(progress));
}

void Writing::rebuild(const Console &console) const {
  if (!lock_) return;
  Progress progress(console, "rebuilding");
  rebuild_catalog(*lock_, catalog_, watched_by(progress));
}

}  // namespace minidba
