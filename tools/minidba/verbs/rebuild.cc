// SPDX-License-Identifier: MIT
#include <algorithm>
#include <map>
#include <ostream>
#include <tuple>

#include "catalog/record.h"
#include "qxapi/escaped.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/minidba/writing.h"

namespace rdm::minidba {
namespace {

/// Version is a description; several may have the same URL.
struct Version {
  uint32_t url_hash;
  time_t time;  // of its last change
  uint32_t number;
};

bool is_newer(const Version &a, const Version &b) { return std::tie(a.time, a.number) > std::tie(b.time, b.number); }

bool by_url(const Version &a, const Version &b) {
  return a.url_hash != b.url_hash ? a.url_hash < b.url_hash : is_newer(a, b);
}

std::vector<Version> versions_of(const Catalog &catalog, const Console &console) {
  std::vector<Version> versions;
  Progress progress(console, "reading");
  catalog.each_to_copy([&](uint32_t number, std::string_view record) {
    const Outline outline = read_outline(catalog, number, record);
    versions.push_back({hash_of(outline.url), outline.change_time, number});
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(versions.begin(), versions.end(), by_url);
  return versions;
}

/// DuplicateRemover erases and reports all descriptions of a URL but the newest.
class DuplicateRemover {
 public:
  DuplicateRemover(const Catalog &catalog, std::ostream &errors)
      : catalog_(catalog), errors_(errors), batch_(catalog) {}

  /// take receives the descriptions whose URLs have the same hash, the newest first.
  void take(const Version *first, const Version *last) {
    std::map<std::string, uint32_t> newest;
    for (; first != last; ++first) {
      const std::string url = url_of(catalog_.get(first->number).value_or("")).value_or("");
      if (const auto [kept, is_first] = newest.emplace(url, first->number); !is_first) drop(*first, kept->second, url);
    }
  }
  const WriteBatch &batch() const { return batch_; }

 private:
  void drop(const Version &version, uint32_t kept, const std::string &url) {
    batch_.erase(version.number, url);
    errors_ << "minidba: description " << version.number << " is dropped: description " << kept
            << " is newer and has the same URL: " << escaped(url) << '\n';
  }

  const Catalog &catalog_;
  std::ostream &errors_;
  WriteBatch batch_;
};

void drop_older(const std::vector<Version> &versions, DuplicateRemover &remover) {
  const Version *const end = versions.data() + versions.size();
  for (const Version *first = versions.data(), *last = first; first != end; first = last) {
    while (last != end && last->url_hash == first->url_hash) ++last;
    if (last - first > 1) remover.take(first, last);
  }
}

}  // namespace

int rebuild(const Options &options, const Console &console) {
  const WriteTransaction transaction(options.database, write_settings(options, console));
  const Catalog &catalog = transaction.catalog();
  const std::vector<Version> versions = versions_of(catalog, console);
  DuplicateRemover remover(catalog, console.errors);
  drop_older(versions, remover);
  const WriteBatch &dropped = remover.batch();
  minidba::rebuild(transaction, dropped, console);
  const auto kept = static_cast<int64_t>(versions.size()) - dropped.count();
  std::vector<Figure> details;
  if (!dropped.empty()) details = {{"rebuilt", kept}, {"dropped", dropped.count()}};
  add_skipped(details, catalog);
  report(options, console, {"rebuilt", kept}, details);
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
