// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/change_times.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "catalog/transaction.h"
#include "qxapi/escaped.h"
#include "tools/common/progress.h"
#include "tools/rdm/error.h"
#include "tools/rdm/target.h"

namespace rdm::client {
namespace {

using catalog::Catalog;
using catalog::ObjectView;
using catalog::WriteBatch;
using catalog::WriteTransaction;

/// Edit collects the changes of one run.
class Edit {
 public:
  explicit Edit(const Catalog &catalog) : catalog_(catalog), batch_(catalog), next_number_(catalog.next_number()) {}

  void put(const std::string &text) {
    std::optional<ObjectView> object = ObjectView::read(text);
    if (!object) throw Failure("the scratch file of the descriptions has changed");
    if (object->url() == "-") {
      changes_.rejected.emplace_back("a description without a URL");
      return;
    }
    catalog::drop_number(*object);
    put(object->url(), object->print(), catalog::valid_change_time(*object));
  }
  void erase(uint32_t number, const std::string &url) {
    batch_.erase(number, url);
    changes_.gone.push_back(url);
  }

  const WriteBatch &batch() const { return batch_; }
  uint32_t next_number() const { return next_number_; }
  Changes &changes() { return changes_; }

 private:
  void put(std::string_view url, const std::string &record, time_t time) {
    const std::optional<uint32_t> number = batch_.number_of(url);
    if (number && batch_.get(*number) == record) return;
    ++(number ? changes_.changed : changes_.added);
    batch_.note_change(time);
    batch_.put(number ? *number : new_number(), url, record);
  }
  uint32_t new_number() {
    if (next_number_ == 0) throw Failure("no number is left in " + catalog_.path());
    return next_number_++;
  }

  const Catalog &catalog_;
  WriteBatch batch_;
  uint32_t next_number_;
  Changes changes_;
};

class DatabaseTarget : public Target {
 public:
  DatabaseTarget(std::string path, const Options &options, const Console &console)
      : path_(std::move(path)), options_(options), console_(console) {}

  void each(const Visitor &visit) const override {
    const Catalog catalog(path_, catalog::IfMissing::empty);
    if (!catalog.exists()) return;
    catalog.each([&](uint32_t number, std::string_view record) {
      const catalog::Outline outline = read_outline(catalog, number, record);
      visit(digest_of(outline.url), catalog::valid_change_time(outline.change_time));
    });
  }

  Changes apply(const Received &received, const Digests &gone) override {
    WriteTransaction transaction(path_, settings());
    transaction.begin();
    Edit edit(transaction.catalog());
    if (!gone.empty()) erase(transaction.catalog(), gone, edit);
    received.each([&](const Received::Entry &entry) {
      if (!gone.contains(entry.key)) edit.put(received.text(entry));
    });
    tools::Progress progress(console_.errors, console_.progress, "rdm: writing");
    transaction.publish(edit.batch(), edit.next_number(), [&](int64_t bytes, int64_t total) {
      progress.expect(total);
      progress.advance(0, bytes);
    });
    warn_of_times_ahead(edit.batch());
    return std::move(edit.changes());
  }

 private:
  void warn_of_times_ahead(const WriteBatch &batch) const {
    if (catalog::is_ahead(batch.newest_change(), console_.clock()))
      console_.errors << "rdm: a description has the time of change " << catalog::date_of(batch.newest_change())
                      << ", after the clock: changes of " << escaped(path_) << " by other programs get later times\n";
  }
  catalog::WriteSettings settings() const {
    catalog::WriteSettings settings;
    settings.if_missing = catalog::IfMissing::empty;
    const auto tell = [this](const std::string &text) { console_.errors << "rdm: " << escaped(text) << std::endl; };
    settings.damage = tell;
    if (!options_.quiet) settings.waiting = tell;
    return settings;
  }

  static void erase(const Catalog &catalog, const Digests &gone, Edit &edit) {
    if (!catalog.exists()) return;
    catalog.each([&](uint32_t number, std::string_view record) {
      const std::string url(read_outline(catalog, number, record).url);
      if (gone.contains(digest_of(url))) edit.erase(number, url);
    });
  }

  std::string path_;
  const Options &options_;
  const Console &console_;
};

}  // namespace

std::unique_ptr<Target> database_target(const std::string &path, const Options &options, const Console &console) {
  return std::make_unique<DatabaseTarget>(path, options, console);
}

}  // namespace rdm::client
