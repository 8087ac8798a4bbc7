#include "tools/minidba/delivery.h"
#include "tools/minidba/exchange.h"
#include "tools/minidba/rejects.h"
#include "tools/minidba/report.h"
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

void take_all(const std::string &input, Delivery &delivery, const Options &options, const Console &console,
              Rejects &rejects) {
  SoifStream stream = open_stream(input, options, console);
  Progress progress(console, "taking in", stream.size());
  while (std::optional<SoifStream::Item> item = stream.next()) {
    progress.advance(1, item->end - item->offset);
    if (const std::string reason = delivery.take(*item); !reason.empty()) rejects.add(stream, *item, reason, progress);
  }
}

}  // namespace

int update(const Options &options, const Console &console) {
  const Writing writing(options, console, Absent::empty);
  Delivery delivery(writing.catalog(), std::time(nullptr));
  Rejects rejects(options, console);
  for (const std::string &input : inputs_of(options)) take_all(input, delivery, options, console, rejects);
  rejects.finish();
  writing.commit(delivery.changes(), delivery.next_number(), console);
  rejects.commit();
  report(options, console, {"accepted", delivery.summary().accepted()}, details(delivery.summary()));
  return rejects.count() == 0 ? exit_done : exit_found_fault;
}

}  // namespace minidba
