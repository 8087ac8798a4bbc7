// SPDX-License-Identifier: MIT
/// What an import must leave behind. The service's answer tells only how many descriptions the update took in; of the
/// commands after it nothing.
#ifndef RDMCTL_OUTCOME_H
#define RDMCTL_OUTCOME_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "catalog/os/file.h"

namespace rdm::rdmctl {

/// Outcome compares the files of a catalog before and after an import.
class Outcome {
 public:
  /// To be made before the import.
  explicit Outcome(const std::string &csid);

  /// database_changed returns true if the database is another than before; index_changed the same of the index.
  bool database_changed() const;
  bool index_changed() const;
  const std::string &database() const { return database_; }

  /// faults returns what the import has left undone, in words: descriptions that have expired, an old index.
  std::vector<std::string> faults() const;

 private:
  std::string database_, index_;
  std::optional<struct stat> database_before_, index_before_;
  time_t began_;
};

}  // namespace rdm::rdmctl

#endif
