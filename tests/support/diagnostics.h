// SPDX-License-Identifier: MIT
/// Reads the diagnostic log.
#ifndef TESTS_SUPPORT_DIAGNOSTICS_H
#define TESTS_SUPPORT_DIAGNOSTICS_H

#include <string>
#include <vector>

#include "support/files.h"

namespace rdm::support {

/// Diagnostics sends the diagnostic log to a file for its lifetime, and turns the log off afterwards.
class Diagnostics {
 public:
  explicit Diagnostics(int level = 1);
  Diagnostics(const Diagnostics &) = delete;
  Diagnostics &operator=(const Diagnostics &) = delete;
  ~Diagnostics();

  /// text returns the log so far without time, process and slot of each line, so that lines read "ERROR: message\n" or
  /// "message\n".
  std::string text() const;
  /// raw returns the bytes of the file.
  std::string raw() const;

 private:
  TemporaryDirectory directory_;
  std::string path_;
};

}  // namespace rdm::support

#endif
