// SPDX-License-Identifier: MIT
/// Comparing descriptions with the schema and the taxonomy of a service.
#ifndef RDMCTL_VALIDATION_H
#define RDMCTL_VALIDATION_H

#include <optional>
#include <string>
#include <vector>

#include "tools/rdmctl/classes.h"

namespace rdm::rdmctl {

/// Validator knows a schema description, a taxonomy description, or both. The schema is that of the process: there can
/// be only one at a time.
class Validator {
 public:
  /// Validator reads the files; an empty path stands for none. Throws a Failure if one cannot be read or is of another
  /// kind.
  Validator(const std::string &schema, const std::string &taxonomy);

  /// faults returns what is wrong with a description: attributes that the schema does not have, values that are not of
  /// their type, classes that are not in the taxonomy. Attributes whose names begin with "rd-" belong to the service
  /// and need not be in the schema.
  std::vector<std::string> faults(const catalog::ObjectView &description) const;

 private:
  bool has_schema_;
  std::optional<Classes> classes_;
};

}  // namespace rdm::rdmctl

#endif
