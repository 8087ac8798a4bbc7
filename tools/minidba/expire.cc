#include <ctime>

#include "tools/minidba/opening.h"
#include "tools/minidba/progress.h"
#include "tools/minidba/record.h"
#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

/// has_expired says whether the time of a description's "rd-expires" has passed; one that cannot be read never does.
bool has_expired(const SOIF *object, time_t now) {
  const time_t time = time_of(object, "rd-expires");
  return time != 0 && time < now;
}

}  // namespace

int expire(const Options &options, const Console &console) {
  const Writing writing(options, console);
  const Catalog &catalog = writing.catalog();
  const time_t now = options.now != 0 ? options.now : std::time(nullptr);
  Changes changes(catalog);
  int64_t expired = 0;
  {
    Progress progress(console, "expiring");
    catalog.each_to_copy([&](uint32_t number, std::string_view record) {
      const soif_ptr object = view(catalog, number, record, {"rd-expires"});
      progress.advance(1, static_cast<int64_t>(record.size()));
      if (!has_expired(object.get(), now)) return;
      changes.erase(number, object->url);
      ++expired;
    });
  }
  writing.commit(changes, catalog.next_number(), console);
  std::vector<Figure> details;
  add_skipped(details, catalog);
  report(options, console, {"expired", expired}, details);
  return status_of_work(catalog);
}

}  // namespace minidba
