#include <ostream>
#include <sstream>

#include "tools/minidba/exchange.h"
#include "tools/minidba/rejects.h"
#include "tools/minidba/report.h"
#include "tools/minidba/update.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

std::vector<Figure> details(const Summary &summary) {
  return {{"new", summary.added},
          {"changed", summary.changed},
          {"unchanged", summary.unchanged},
          {"rejected", summary.rejected}};
}

void take_all(Update &update, const Options &options, const Console &console, Rejects &rejects) {
  SoifStream stream = open_stream(options, console);
  Progress progress(console, "taking in", stream.size());
  while (std::optional<SoifStream::Item> item = stream.next()) {
    progress.advance(1, item->end - item->offset);
    if (const std::string reason = update.take(*item); !reason.empty()) rejects.add(stream, *item, reason, progress);
  }
}

}  // namespace

int update(const Options &options, const Console &console) {
  const Writing writing(options, Absent::empty);
  Update update(writing.catalog(), std::time(nullptr));
  Rejects rejects(options, console);
  take_all(update, options, console, rejects);
  rejects.finish();
  writing.commit(update.changes(), update.next_number());
  rejects.commit();
  report(options, console, {"accepted", update.summary().accepted()}, details(update.summary()));
  return exit_done;
}

}  // namespace minidba
