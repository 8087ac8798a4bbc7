// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/stream/dump_format.h"
#include "catalog/stream/importer.h"
#include "catalog/stream/stream_check.h"
#include "tools/common/stray_text.h"
#include "tools/minidba/input.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/rejects.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {
namespace {

std::vector<Figure> details(const Summary &summary, const Catalog &catalog) {
  std::vector<Figure> figures{{"new", summary.added},
                              {"changed", summary.changed},
                              {"unchanged", summary.unchanged},
                              {"rejected", summary.rejected}};
  add_skipped(figures, catalog);
  return figures;
}

void import_stream(const std::string &input, Importer &importer, const Options &options, const Console &console,
                   Rejects &rejects) {
  SoifStream stream = open_stream(input, options, console);
  Progress progress(console, "taking in", stream.size());
  StreamCheck check;
  tools::StrayText stray(stream);
  const auto warn = [&](const std::string &text) {
    if (text.empty()) return;
    progress.clear();
    console.errors << "minidba: " << text << '\n';
  };
  while (std::optional<SoifStream::Item> item = stream.next()) {
    check.take(*item);
    warn(stray.before(*item));
    progress.advance(1, item->end - item->offset);
    if (const std::string reason = importer.take(*item); !reason.empty()) rejects.add(stream, *item, reason, progress);
  }
  warn(stray.at_end());
  check.require_end();
}

/// commit_rejects commits the file of rejected objects. If the input had no objects, it leaves the file of an earlier
/// update.
void commit_rejects(Rejects &rejects, const Summary &summary) {
  if (summary.accepted() > 0 || rejects.count() > 0) rejects.commit();
}

}  // namespace

int update(const Options &options, const Console &console) {
  WriteTransaction transaction(options.database, write_settings(options, console, IfMissing::empty));
  Importer importer(transaction);
  Rejects rejects(options, console);
  for (const std::string &input : inputs_of(options)) import_stream(input, importer, options, console, rejects);
  const Summary &summary = importer.summary();
  rejects.finish();
  date(transaction, importer.batch(), console);
  if (summary.accepted() > 0) commit(transaction, importer.batch(), importer.next_number(), console);
  commit_rejects(rejects, summary);
  if (summary.accepted() == 0)
    console.errors << "minidba: no valid description in the input: the catalog is unchanged\n";
  report(options, console, {"accepted", summary.accepted()}, details(summary, transaction.catalog()),
         rejects.reasons());
  return summary.accepted() > 0 && rejects.count() == 0 ? status_of_work(transaction.catalog()) : exit_found_fault;
}

}  // namespace rdm::minidba
