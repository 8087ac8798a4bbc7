#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {

int rebuild(const Options &options, const Console &console) {
  const Writing writing(options, console);
  int64_t descriptions = 0;
  {
    Progress progress(console, "reading");
    writing.catalog().each([&](uint32_t number, std::string_view record) {
      view(writing.catalog(), number, record, {});
      progress.advance(1, static_cast<int64_t>(record.size()));
      ++descriptions;
    });
  }
  writing.rebuild(console);
  report(options, console, {"rebuilt", descriptions});
  return exit_done;
}

}  // namespace minidba
