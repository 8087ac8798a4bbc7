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
  /// Outcome records the state before the import. The catalog service must have a database. Throws a SystemFailure if
  /// stat fails for a reason other than ENOENT.
  explicit Outcome(const std::string &csid);

  /// database_changed returns true if the database was replaced after the constructor ran, index_changed if the index
  /// was. Both throw like the constructor.
  bool database_changed() const;
  bool index_changed() const;
  const std::string &database() const { return database_; }

  /// faults returns a message if expired descriptions are still in the database, and one if the index was not replaced.
  /// If a file cannot be read, it returns only the text of that Failure.
  std::vector<std::string> faults() const;

 private:
  std::string database_, index_;
  std::optional<struct stat> database_before_, index_before_;
  time_t began_;
};

}  // namespace rdm::rdmctl

#endif
