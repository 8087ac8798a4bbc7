// SPDX-License-Identifier: MIT
#include "tools/rdmctl/publishing.h"

#include <fcntl.h>
#include <sha2.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <ostream>
#include <set>

#include "catalog/change_times.h"
#include "catalog/maintenance.h"
#include "catalog/number_set.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/stream_check.h"
#include "catalog/transaction.h"
#include "qxapi/ascii.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/common/progress.h"
#include "tools/common/rejection.h"
#include "tools/common/stray_text.h"
#include "tools/rdmctl/output.h"

namespace rdm::rdmctl {
namespace {

using catalog::Catalog;
using catalog::Failure;
using catalog::SoifStream;

constexpr size_t kept_rejects = 1000;

catalog::WriteSettings write_settings(const Feed &feed, std::ostream &errors) {
  catalog::WriteSettings settings;
  settings.if_missing = catalog::IfMissing::empty;
  settings.dry_run = feed.dry_run;
  settings.lock_timeout = feed.wait;
  settings.waiting =
      settings.damage = [&errors](const std::string &text) { errors << "rdmctl: " << escaped(text) << std::endl; };
  return settings;
}

std::string sha256_of(const SoifStream &stream) {
  SHA2_CTX context;
  SHA256Init(&context);
  stream.each_block([&](std::string_view bytes) {
    SHA256Update(&context, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  });
  char text[SHA256_DIGEST_STRING_LENGTH];
  return SHA256End(&context, text);
}

HostFileGuard open_input(const std::string &name, std::ostream &errors) {
  if (name == "-" && ::isatty(STDIN_FILENO) != 0)
    errors << "rdmctl: publish reads from the terminal; Ctrl-D at the start of a line ends it" << std::endl;
  HostFileGuard file = name == "-" ? HostFileGuard(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0))
                                   : catalog::open_file(name, O_RDONLY | O_NOCTTY);
  if (!file) throw catalog::system_failure("cannot read " + name);
  return file;
}

/// check_header throws an Unfit for the header of a request, and for that of an rd-delete-response: importing it would
/// add what it names.
void check_header(const SoifStream::Item &item, const std::string &name) {
  const auto type = item.object ? item.object->find("rdm-type") : std::nullopt;
  constexpr std::string_view request = "-request";
  if (type && type->size() > request.size() && ascii::iequals(type->substr(type->size() - request.size()), request))
    throw Unfit(name + " is a request: " + escaped(*type));
  if (type && ascii::iequals(*type, "rd-delete-response"))
    throw Unfit(name + " is an rd-delete-response: rdmctl import --delete deletes what it names");
}

/// require_end throws an Unfit if a stream is cut.
void require_end(const catalog::StreamCheck &check) try { check.require_end(); } catch (const Failure &failure) {
  throw Unfit(failure.what());
}

/// Publisher takes a feed into one batch.
class Publisher {
 public:
  Publisher(const Feed &feed, Publication &result, std::ostream &errors)
      : feed_(feed),
        result_(result),
        errors_(errors),
        transaction_(feed.database, write_settings(feed, errors)),
        importer_(transaction_) {}

  void take(const std::string &name);
  void delete_absent();
  void erase_expired();
  void require_limit() const;
  void commit();

 private:
  void take_item(SoifStream &stream, SoifStream::Item &item, tools::Progress &progress);
  void report_stray(const std::string &text, tools::Progress &progress);
  void count(SoifStream &stream, const SoifStream::Item &item, const catalog::Summary &before,
             tools::Progress &progress);
  bool validate(SoifStream &stream, const SoifStream::Item &item, tools::Progress &progress);
  void warn(SoifStream &stream, const SoifStream::Item &item, const std::string &reason);
  void note_repeat(SoifStream &stream, const SoifStream::Item &item);
  void reject(SoifStream &stream, const SoifStream::Item &item, const std::string &reason);
  tools::Progress progress(const char *work, int64_t total = 0) {
    return {errors_, feed_.shows_progress, std::string("rdmctl: ") + work, total};
  }
  void date();

  const Feed &feed_;
  Publication &result_;
  std::ostream &errors_;
  catalog::WriteTransaction transaction_;
  catalog::Importer importer_;
  std::set<std::string> rejected_urls_;
  bool has_unnamed_reject_ = false;
  int64_t descriptions_ = 0;              // in the catalog before a full feed
  catalog::NumberSet taken_, unchanged_;  // of the descriptions in the feed, and of those that it leaves as they are
};

void Publisher::take(const std::string &name) {
  const HostFileGuard file = open_input(name, errors_);
  tools::Progress copying = progress("reading the input");
  SoifStream stream(
      file.get(), feed_.database, [&](int64_t bytes) { copying.advance(0, bytes); }, name == "-" ? "the input" : name);
  copying.clear();
  result_.inputs.push_back({name, stream.size(), sha256_of(stream)});
  tools::Progress taking = progress("taking in", stream.size());
  catalog::StreamCheck check;
  tools::StrayText stray(stream);
  bool is_cut = false;
  while (std::optional<SoifStream::Item> item = stream.next()) {
    check.take(*item);
    is_cut = item->is_cut;
    report_stray(stray.before(*item), taking);
    taking.advance(1, item->end - item->offset);
    take_item(stream, *item, taking);
  }
  report_stray(stray.at_end(), taking);
  require_end(check);
  // What followed the cut would be deleted.
  if (is_cut && feed_.is_full) throw Unfit(stream.name() + " ends within an object: nothing is changed");
}

void Publisher::report_stray(const std::string &text, tools::Progress &progress) {
  if (text.empty()) return;
  progress.clear();
  errors_ << "rdmctl: " << text << '\n';
  result_.has_stray_text = has_unnamed_reject_ = true;
}

void Publisher::take_item(SoifStream &stream, SoifStream::Item &item, tools::Progress &progress) {
  if (catalog::is_header(item)) return check_header(item, stream.name());
  if (!validate(stream, item, progress)) return;
  const catalog::Summary before = importer_.summary();
  const std::string reason = importer_.take(item);
  if (reason.empty()) return count(stream, item, before, progress);
  ++result_.summary.rejected;
  progress.clear();
  reject(stream, item, reason);
}

/// count counts an accepted description by what the feed does to its URL, once for each URL.
void Publisher::count(SoifStream &stream, const SoifStream::Item &item, const catalog::Summary &before,
                      tools::Progress &progress) {
  const catalog::Summary &now = importer_.summary();
  const uint32_t number = importer_.taken().back();
  const bool is_unchanged = now.unchanged > before.unchanged;
  if (taken_.insert(number)) {
    result_.summary.added += now.added - before.added;
    result_.summary.changed += now.changed - before.changed;
    result_.summary.unchanged += now.unchanged - before.unchanged;
    if (is_unchanged) unchanged_.insert(number);
    return;
  }
  if (!is_unchanged && unchanged_.erase(number)) --result_.summary.unchanged, ++result_.summary.changed;
  progress.clear();
  note_repeat(stream, item);
}

/// validate returns false, after rejecting the object, if the feed is strict and the validator faults it.
bool Publisher::validate(SoifStream &stream, const SoifStream::Item &item, tools::Progress &progress) {
  if (feed_.validator == nullptr || !catalog::refusal(item).empty()) return true;
  std::string reasons;
  for (const std::string &fault : feed_.validator->faults(*item.object))
    reasons += (reasons.empty() ? "" : "; ") + fault;
  if (reasons.empty()) return true;
  progress.clear();
  if (!feed_.is_strict) {
    warn(stream, item, reasons);
    return true;
  }
  ++result_.summary.rejected;
  reject(stream, item, reasons);
  return false;
}

void Publisher::warn(SoifStream &stream, const SoifStream::Item &item, const std::string &reason) {
  const tools::Rejection warning = tools::rejection_of(stream, item, reason);
  ++result_.warned;
  errors_ << "rdmctl: " << escaped(warning.input) << ": line " << warning.line << ": " << escaped(warning.url)
          << ": warning: " << escaped(warning.reason) << '\n';
  if (result_.warnings.size() < kept_rejects) result_.warnings.push_back(json_of(warning));
}

void Publisher::note_repeat(SoifStream &stream, const SoifStream::Item &item) {
  const tools::Rejection repeat =
      tools::rejection_of(stream, item, "an earlier description of the feed has this URL: the last one counts");
  ++result_.repeated;
  errors_ << "rdmctl: " << escaped(repeat.input) << ": line " << repeat.line << ": " << escaped(repeat.url) << ": "
          << repeat.reason << '\n';
  if (result_.repeats.size() < kept_rejects) result_.repeats.push_back(json_of(repeat));
}

void Publisher::reject(SoifStream &stream, const SoifStream::Item &item, const std::string &reason) {
  const tools::Rejection rejection = tools::rejection_of(stream, item, reason);
  errors_ << "rdmctl: " << line_of(rejection) << '\n';
  if (result_.rejects.size() < kept_rejects) result_.rejects.push_back(json_of(rejection));
  if (rejection.url.empty() || rejection.url == "-")
    has_unnamed_reject_ = true;
  else if (feed_.is_full)
    rejected_urls_.insert(rejection.url);
}

/// delete_absent erases the descriptions that a full feed lacks. A rejected object keeps the description of its URL.
void Publisher::delete_absent() {
  result_.keeps_absent = feed_.is_full && has_unnamed_reject_;
  if (!feed_.is_full || has_unnamed_reject_) return;
  std::vector<uint32_t> taken = importer_.taken();
  std::sort(taken.begin(), taken.end());
  const Catalog &catalog = transaction_.catalog();
  const auto look = [&](std::string_view url, uint32_t number) {
    ++descriptions_;
    if (std::binary_search(taken.begin(), taken.end(), number) || rejected_urls_.contains(std::string(url))) return;
    importer_.batch().erase(number, url);
    ++result_.deleted;
  };
  catalog.url_map() != nullptr ? catalog.url_map()->each(look) : catalog.each_url(look);
}

void Publisher::erase_expired() {
  tools::Progress expiring = progress("expiring");
  result_.expired = catalog::erase_expired(transaction_.catalog(), std::time(nullptr), importer_.batch(),
                                           [&](int64_t bytes) { expiring.advance(1, bytes); });
}

/// require_limit throws an Unfit if a full feed would delete too much. What has expired counts: the clock or the times
/// of the feed may be wrong.
void Publisher::require_limit() const {
  if (!feed_.is_full || feed_.max_delete.allows(result_.deleted + result_.expired, descriptions_)) return;
  const std::string expired =
      result_.expired == 0 ? "" : " and " + counted(result_.expired, "has", "have") + " expired";
  throw Unfit("the feed lacks " + std::to_string(result_.deleted) + " of " + counted(descriptions_, "description") +
              expired + ", more than --max-delete " + feed_.max_delete.text() + ": nothing is changed");
}

void Publisher::date() {
  time_t now = 0;
  const auto time = transaction_.date(importer_.batch(), [&] { return now = std::time(nullptr); });
  if (time && catalog::is_ahead(*time, now))
    errors_ << "rdmctl: the clock is behind the newest time of change: changes get the time " << catalog::date_of(*time)
            << '\n';
}

void Publisher::commit() {
  if (result_.summary.accepted() == 0) throw Unfit("no valid description in the input: nothing is changed");
  delete_absent();
  erase_expired();
  require_limit();
  date();
  tools::Progress writing = progress("writing");
  transaction_.publish(importer_.batch(), importer_.next_number(), shown_by(writing));
}

}  // namespace

Limit::Limit(const std::string &text) : text_(text), is_share_(text.ends_with('%')) {
  const char *end = text.data() + text.size() - (is_share_ ? 1 : 0);
  const auto [stop, error] = std::from_chars(text.data(), end, value_, std::chars_format::fixed);
  const bool is_valid =
      error == std::errc() && stop == end && std::isfinite(value_) && value_ >= 0 && (!is_share_ || value_ <= 100);
  if (!is_valid) throw Failure("not a number or a share such as 10%: " + text);
}

bool Limit::allows(int64_t deletions, int64_t descriptions) const {
  const double limit = is_share_ ? static_cast<double>(descriptions) * value_ / 100 : value_;
  return static_cast<double>(deletions) <= limit;
}

void publish(const Feed &feed, Publication &result, std::ostream &errors) {
  Publisher publisher(feed, result, errors);
  for (const std::string &name : feed.files) publisher.take(name);
  publisher.commit();
}

}  // namespace rdm::rdmctl
