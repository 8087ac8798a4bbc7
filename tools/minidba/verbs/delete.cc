// SPDX-License-Identifier: MIT
#include <ostream>

#include "qxapi/escaped.h"
#include "qxapi/number.h"
#include "tools/minidba/input.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {
namespace {

/// Deletion erases descriptions by number or URL, and reports and counts words that name none.
class Deletion {
 public:
  Deletion(const Catalog &catalog, std::ostream &errors) : catalog_(catalog), batch_(catalog), errors_(errors) {}
  void take(const std::string &word) {
    if (const std::optional<Found> found = find(word)) {
      batch_.erase(found->number, found->url);
      ++deleted_;
    } else {
      errors_ << "minidba: no description " << escaped(word) << '\n';
      ++absent_;
    }
  }
  const WriteBatch &batch() const { return batch_; }
  int64_t deleted() const { return deleted_; }
  int64_t absent() const { return absent_; }

 private:
  struct Found {
    uint32_t number;
    std::string url;
  };

  std::optional<Found> find(const std::string &word) const {
    const std::optional<uint32_t> number = parse_number<uint32_t>(word);
    if (const auto record = number ? batch_.get(*number) : std::nullopt)
      return Found{*number, parse_record(catalog_, *number, *record)->url};
    const std::optional<uint32_t> mapped = batch_.number_of(word);
    return mapped ? std::optional<Found>({*mapped, word}) : std::nullopt;
  }

  const Catalog &catalog_;
  WriteBatch batch_;
  std::ostream &errors_;
  int64_t deleted_ = 0, absent_ = 0;
};

}  // namespace

int delete_descriptions(const Options &options, const Console &console) {
  const WriteTransaction transaction(options.database, write_settings(options, console));
  Deletion deletion(transaction.catalog(), console.errors);
  each_word(options, console, [&](const std::string &word) { deletion.take(word); });
  commit(transaction, deletion.batch(), transaction.catalog().next_number(), console);
  std::vector<Figure> details{{"deleted", deletion.deleted()}, {"not there", deletion.absent()}};
  add_skipped(details, transaction.catalog());
  report(options, console, {"deleted", deletion.deleted()}, details);
  return deletion.absent() == 0 ? status_of_work(transaction.catalog()) : exit_found_fault;
}

}  // namespace rdm::minidba
