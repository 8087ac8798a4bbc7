// SPDX-License-Identifier: MIT
/// Publishing submissions: update, expiry and index as one change of a catalog.
#ifndef RDMCTL_PUBLISHING_H
#define RDMCTL_PUBLISHING_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "catalog/stream/importer.h"
#include "tools/rdmctl/validation.h"

namespace rdm::rdmctl {

/// Unfit is a Failure of the feed itself: publishing the same files again would fail again.
class Unfit : public catalog::Failure {
 public:
  using Failure::Failure;
};

/// Limit bounds the deletions of a full feed: a number, or a share of the descriptions in the catalog.
class Limit {
 public:
  /// Limit reads "25" or "10%". Throws a Failure for another text, and for more than 100%.
  explicit Limit(const std::string &text);
  bool allows(int64_t deletions, int64_t descriptions) const;
  const std::string &text() const { return text_; }

 private:
  std::string text_;
  double value_ = 0;
  bool is_share_;
};

/// Feed is what to publish, and how.
struct Feed {
  std::string database;
  std::vector<std::string> files;  // "-" is standard input
  bool is_full = false;            // descriptions that it lacks are deleted
  Limit max_delete{"10%"};
  double wait = -1;                      // seconds to wait for the lock; below zero without limit
  const Validator *validator = nullptr;  // null to accept all descriptions; it must outlive the feed
  bool is_strict = false;                // rejects what the validator faults, instead of warning
  bool dry_run = false;
  bool shows_progress = false;
};

/// Input is a file of a feed as it was read.
struct Input {
  std::string name;
  int64_t bytes;
  std::string sha256;  // hexadecimal
};

/// Publication is the result of publishing a feed, as far as it came.
struct Publication {
  std::vector<Input> inputs;
  catalog::Summary summary;  // by the effect on the catalog; of descriptions with the same URL the last one counts
  int64_t deleted = 0;       // descriptions that a full feed lacked
  int64_t expired = 0;       // descriptions that were deleted because of "rd-expires"
  int64_t warned = 0;        // descriptions with warnings of the validator
  std::vector<std::string> warnings;  // the first thousand of them as JSON
  int64_t repeated = 0;               // accepted descriptions whose URL an earlier one of the feed has
  std::vector<std::string> repeats;   // the first thousand of them as JSON
  std::vector<std::string> rejects;   // the first thousand rejected objects as JSON
  bool has_stray_text = false;        // that belongs to no object
  /// keeps_absent is true if nothing of a full feed was deleted because the URL of a rejected object is not known.
  bool keeps_absent = false;
};

/// publish reads a feed and changes the catalog to the state after it, or, in a dry run, only reads. Rejected objects,
/// and messages about the catalog, are written to `errors`, each on a line. `result` receives what was done. Throws an
/// Unfit, and changes nothing, if a file is cut (of a full feed also within its last object) or an rd-delete-response,
/// no object is a description, or a full feed would delete more than the limit. Throws a Failure if a file cannot be
/// read or written; nothing is changed then, unless its text says that a file is replaced.
void publish(const Feed &feed, Publication &result, std::ostream &errors);

}  // namespace rdm::rdmctl

#endif
