// SPDX-License-Identifier: MIT
#include "tools/rdmgather/gathering.h"

#include <algorithm>
#include <ostream>
#include <set>

#include "catalog/os/error.h"
#include "tools/common/program.h"
#include "tools/rdmgather/document.h"
#include "tools/rdmgather/document_url.h"
#include "tools/rdmgather/messages.h"
#include "tools/rdmgather/ordered_work.h"
#include "tools/rdmgather/state.h"

namespace rdm::gather {
namespace {

/// Outcome is what became of a document. Without `known`, it could not be read, and `text` is the reason; otherwise
/// `text` is its description, empty if it has not changed.
struct Outcome {
  std::string text;
  std::optional<Known> known;
};

size_t jobs_of(const Options &options) {
  constexpr size_t usual_most = 8;
  if (options.jobs != 0) return options.jobs;
  return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, usual_most);
}

class Gathering {
 public:
  Gathering(const Options &options, const Console &console)
      : options_(options),
        console_(console),
        base_url_(with_slash(options.base_url)),
        state_(options.state, base_url_),
        progress_(console.errors, console.is_watched, "rdmgather: reading"),
        messages_(options, console, progress_) {
    if (!options.deletions.empty()) deletions_.emplace(options.deletions);
  }

  int run() {
    listing_ = list_documents(options_.directory, own_files());
    for (const Fault &fault : listing_.faults) fail(fault);
    require_plausible();
    describe();
    keep_or_delete();
    finish();
    messages_.finish(counts_);
    return counts_.failed > 0 ? exit_incomplete : tools::exit_done;
  }

 private:
  /// own_files returns the files that this program writes, which may be in the directory.
  std::vector<FileIdentity> own_files() const {
    std::vector<FileIdentity> files;
    for (const std::string &path : {options_.state, options_.deletions})
      for (const std::string_view suffix : {std::string_view(), catalog::next_state_suffix})
        if (const auto status = path.empty() ? std::nullopt : catalog::status_of(path + std::string(suffix)))
          files.emplace_back(status->st_dev, status->st_ino);
    struct stat status;
    if (console_.output != -1 && ::fstat(console_.output, &status) == 0)
      files.emplace_back(status.st_dev, status.st_ino);
    return files;
  }

  void describe() {
    const auto make = [this] {
      return [this, types = std::make_shared<ContentTypes>()](size_t item) { return outcome_of(item, *types); };
    };
    OrderedWork<Outcome> work(listing_.documents.size(), jobs_of(options_), make);
    for (const Entry &entry : listing_.documents) {
      settle(entry, work.next());
      progress_.advance(1, entry.print.size);
    }
  }

  /// outcome_of is called by several threads. They only read what this object has.
  Outcome outcome_of(size_t item, const ContentTypes &types) const {
    const Entry &entry = listing_.documents[item];
    try {
      return read(entry, types);
    } catch (const std::exception &failure) {
      return {failure.what(), std::nullopt};
    }
  }

  Outcome read(const Entry &entry, const ContentTypes &types) const {
    const std::string path = encoded_path(entry.path);
    const auto before = state_.before().find(path);
    const bool is_known = before != state_.before().end();
    if (is_known && before->second.print == entry.print) return {"", before->second};
    const Document document(entry, listing_.root);
    const Known known{document.print(), document.md5()};
    if (is_known && before->second.md5 == known.md5) return {"", known};
    return {document.description(base_url_ + path, entry.path, types), known};
  }

  void settle(const Entry &entry, const Outcome &outcome) {
    if (!outcome.known) return fail({entry.path, outcome.text});
    state_.remember(encoded_path(entry.path), *outcome.known);
    if (outcome.text.empty()) {
      ++counts_.unchanged;
      return;
    }
    ++counts_.described;
    console_.out << outcome.text;
  }

  void fail(const Fault &fault) {
    ++counts_.failed;
    failed_.insert(encoded_path(fault.path));
    messages_.failed(fault);
  }

  /// has_failed returns true if a path or a directory on it could not be read. The empty path is the whole directory.
  bool has_failed(const std::string &path) const {
    if (failed_.contains("") || failed_.contains(path)) return true;
    for (size_t slash = 0; (slash = path.find('/', slash)) != std::string::npos; ++slash)
      if (failed_.contains(path.substr(0, slash))) return true;
    return false;
  }

  /// require_plausible throws a Failure if no document is left of those that are known: a directory on which no file
  /// system is mounted is empty too.
  void require_plausible() const {
    if (options_.believe || !listing_.documents.empty()) return;
    const auto &before = state_.before();
    if (std::all_of(before.begin(), before.end(), [this](const auto &known) { return has_failed(known.first); }))
      return;
    throw catalog::Failure("no document is left in " + options_.directory + ", of " + std::to_string(before.size()) +
                           " in the last run: nothing is changed; if they are gone indeed, say --believe");
  }

  void keep_or_delete() {
    std::set<std::string> present;
    for (const Entry &entry : listing_.documents) present.insert(encoded_path(entry.path));
    for (const auto &[path, known] : state_.before()) {
      if (has_failed(path))
        state_.remember(path, known);
      else if (!present.contains(path))
        remove(base_url_ + path);
    }
  }

  void remove(const std::string &url) {
    ++counts_.deleted;
    if (deletions_)
      deletions_->write(url + "\n");
    else
      messages_.deleted(url);
  }

  void finish() {
    console_.out.flush();
    if (deletions_) {
      deletions_->finish();
      deletions_->commit();
    }
    state_.commit();
  }

  const Options &options_;
  const Console &console_;
  std::string base_url_;
  State state_;
  std::optional<catalog::AtomicWriter> deletions_;
  tools::Progress progress_;
  Messages messages_;
  Listing listing_;
  std::set<std::string> failed_;  // encoded paths
  Counts counts_;
};

}  // namespace

int gather(const Options &options, const Console &console) { return Gathering(options, console).run(); }

}  // namespace rdm::gather
