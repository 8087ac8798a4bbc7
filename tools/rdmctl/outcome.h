// SPDX-License-Identifier: MIT
/// Checking the result of an import. The answer of the service holds only the number that minidba update accepted; it
/// does not tell whether the commands after it succeeded.
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
  /// Outcome records the state before the import. The catalog service must have a database. Throws a SystemFailure.
  explicit Outcome(const std::string &csid);

  /// database_changed returns true if the database was replaced since; index_changed does so for the index.
  bool database_changed() const;
  bool index_changed() const;
  const std::string &database() const { return database_; }

  /// faults returns messages about commands that failed: there are expired descriptions, or the index is old.
  std::vector<std::string> faults() const;

 private:
  std::string database_, index_;
  std::optional<struct stat> database_before_, index_before_;
  time_t began_;
};

}  // namespace rdm::rdmctl

#endif
