// SPDX-License-Identifier: MIT
/// The diagnostic log as tests read it.
#ifndef TESTS_SUPPORT_DIAGNOSTICS_H
#define TESTS_SUPPORT_DIAGNOSTICS_H

#include <string>
#include <vector>

#include "support/files.h"

namespace rdm::support {

/// Diagnostics sends the diagnostic log to a file for its lifetime and then silences it.
class Diagnostics {
 public:
  explicit Diagnostics(int level = 1);
  Diagnostics(const Diagnostics &) = delete;
  Diagnostics &operator=(const Diagnostics &) = delete;
  ~Diagnostics();

  /// text returns everything written so far with the time stamp, process and slot of each line removed, so that lines
  /// read "ERROR: message\n" or "message\n".
  std::string text() const;
  /// raw returns the file as it stands.
  std::string raw() const;

 private:
  TemporaryDirectory directory_;
  std::string path_;
};

}  // namespace rdm::support

#endif
