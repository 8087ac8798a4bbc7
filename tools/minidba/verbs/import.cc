// SPDX-License-Identifier: MIT
#include <algorithm>
#include <ostream>

#include "catalog/change_times.h"
#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/stream_check.h"
#include "catalog/used_numbers.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/minidba/input.h"
#include "tools/minidba/output/rejects.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {
namespace {

/// Import collects the descriptions of a new catalog.
class Import {
 public:
  /// `used` are numbers and times of change of the replaced catalog. They are not used again.
  Import(const Catalog &catalog, const UsedNumbers &used)
      : catalog_(catalog), batch_(catalog), next_(from_stored(used.next_number)) {
    batch_.note_change(used.newest_change);
  }

  /// expect reserves the numbers that the exporting catalog has used.
  void expect(const ExportHeader &header) {
    if (header.next_number) next_ = std::max(next_, from_stored(*header.next_number));
  }
  /// add adds a description under its number. Returns the reason if that is impossible, otherwise an empty text.
  std::string add(uint32_t number, ObjectView &object) {
    if (batch_.number_of(object.url())) return "its URL was there before";
    if (batch_.get(number)) return "its number was there before";
    drop_number(object);
    put(number, object);
    next_ = std::max(next_, uint64_t{number} + 1);
    return {};
  }
  /// add_unnumbered adds a description under the next number.
  std::string add_unnumbered(ObjectView &object) {
    if (next_ == none) throw Failure("no number is left in " + catalog_.path());
    return add(static_cast<uint32_t>(next_), object);
  }

  WriteBatch &batch() { return batch_; }
  uint32_t next_number() const { return static_cast<uint32_t>(next_); }

 private:
  static constexpr uint64_t none = uint64_t{1} << 32;
  /// put keeps a valid time of change. Other descriptions get the time of the import.
  void put(uint32_t number, ObjectView &object) {
    if (const time_t time = valid_change_time(object); time != 0) {
      batch_.note_change(time);
      batch_.put(number, object.url(), object.print());
    } else {
      batch_.put_undated(number, object.url(), print_undated(object));
    }
  }

  static uint64_t from_stored(uint32_t number) { return number != 0 ? number : none; }

  const Catalog &catalog_;
  WriteBatch batch_;
  uint64_t next_;  // the next number, or `none`
};

/// ImportStream reads a stream into an import.
class ImportStream {
 public:
  ImportStream(Import &import, Rejects &rejects, SoifStream &stream, Progress &progress)
      : import_(import), rejects_(rejects), stream_(stream), progress_(progress) {}

  void take(SoifStream::Item item) {
    progress_.advance(1, item.end - item.offset);
    if (is_header(item)) return import_.expect(read_header(*item.object));
    std::string reason = refusal(item);
    const std::optional<uint32_t> number = reason.empty() ? number_in(*item.object) : std::nullopt;
    if (reason.empty() && !number) reason = "minidba-number is not a number from 1";
    if (reason.empty() && *number == 0) return unnumbered_.push_back({item.number, item.offset, item.end, {}, {}});
    count(item, reason.empty() ? import_.add(*number, *item.object) : reason);
  }
  /// take_unnumbered adds the descriptions without a number, after all others.
  void take_unnumbered() {
    for (const SoifStream::Item &item : unnumbered_) {
      std::optional<ObjectView> object = ObjectView::read_owned(stream_.bytes_of(item));
      if (!object) throw Failure("cannot read " + stream_.name() + ": it has changed");
      const std::string reason = import_.add_unnumbered(*object);
      if (reason.empty()) ++renumbered_;
      SoifStream::Item named{item.number, item.offset, item.end, {}, {}};
      named.url = object->url();
      count(named, reason);
    }
  }

  int64_t imported() const { return imported_; }
  int64_t renumbered() const { return renumbered_; }

 private:
  void count(const SoifStream::Item &item, const std::string &reason) {
    if (reason.empty())
      ++imported_;
    else
      rejects_.add(stream_, item, reason, progress_);
  }

  Import &import_;
  Rejects &rejects_;
  SoifStream &stream_;
  Progress &progress_;
  std::vector<SoifStream::Item> unnumbered_;
  int64_t imported_ = 0, renumbered_ = 0;
};

/// check_header refuses a stream without an export header: it could be truncated.
void check_header(const StreamCheck &check, const Options &options) {
  if (!check.has_export_header() && !options.no_header)
    throw Failure("no export header in front of the input: nothing is imported without --no-header");
}

/// check_rejects throws a Failure if objects were rejected and the options name no file for them.
void check_rejects(const Rejects &rejects, const Options &options, const Console &console) {
  const int64_t count = rejects.count();
  if (count == 0 || !options.rejects.empty()) return;
  if (options.json) report(options, console, {"imported", 0}, {{"rejected", count}}, rejects.reasons());
  throw Failure(counted(count, "object") + " rejected: nothing is imported without --rejects");
}

struct Imported {
  int64_t descriptions, renumbered;
  bool is_announced;  // the export header announces exactly these descriptions
};

/// check_empty refuses an empty import if the replaced catalog may have descriptions, or if the stream does not
/// announce that it has none.
void check_empty(const Imported &imported, const UsedNumbers &used, const Options &options) {
  if (imported.descriptions > 0 || options.allow_empty) return;
  if (!used.is_empty)
    throw Failure("the input has no descriptions and " + options.database +
                  " has some: nothing is imported without --allow-empty");
  if (!imported.is_announced) throw Failure("no descriptions in the input: nothing is imported without --allow-empty");
}

void warn_of_future(time_t newest_change, const Console &console) {
  if (is_ahead(newest_change, console.clock()))
    console.errors << "minidba: the import has times of change up to " << date_of(newest_change)
                   << ", ahead of the clock: changes after it get later times\n";
}

Imported read_all(Import &import, Rejects &rejects, const Options &options, const Console &console) {
  SoifStream stream = open_stream(inputs_of(options).front(), options, console);
  Progress progress(console, "importing", stream.size());
  ImportStream stream_import(import, rejects, stream, progress);
  StreamCheck check;
  while (std::optional<SoifStream::Item> item = stream.next()) {
    check.take(*item);
    check_header(check, options);
    stream_import.take(std::move(*item));
  }
  check_header(check, options);
  stream_import.take_unnumbered();
  check.require_whole();
  check_rejects(rejects, options, console);
  return {stream_import.imported(), stream_import.renumbered(),
          check.has_export_header() && check.objects() == stream_import.imported()};
}

/// replaced returns the used numbers of the catalog that is replaced, as far as a damaged one can be read.
UsedNumbers replaced(const Options &options, const Console &console) {
  if (!status_of(options.database)) return {};
  if (!options.replace) throw Failure("database exists: " + options.database + " (--replace replaces it)");
  UsedNumbers used = used_numbers(options.database);
  if (!used.damage.empty())
    console.errors << "minidba: " << escaped(used.damage) << ": some of its used numbers may be unknown\n";
  return used;
}

}  // namespace

int import_catalog(const Options &options, const Console &console) {
  const WriteTransaction transaction(options.database, write_settings(options, console, IfMissing::assumed));
  const UsedNumbers used = replaced(options, console);
  Import import(transaction.catalog(), used);
  Rejects rejects(options, console);
  const Imported imported = read_all(import, rejects, options, console);
  check_empty(imported, used, options);
  rejects.finish();
  warn_of_future(import.batch().newest_change(), console);
  date(transaction, import.batch(), console);
  commit(transaction, import.batch(), import.next_number(), console);
  rejects.commit();
  report(options, console, {"imported", imported.descriptions},
         {{"imported", imported.descriptions}, {"numbered anew", imported.renumbered}, {"rejected", rejects.count()}},
         rejects.reasons());
  return rejects.count() == 0 ? exit_done : exit_found_fault;
}

}  // namespace rdm::minidba
