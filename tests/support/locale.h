// SPDX-License-Identifier: MIT
/// A locale other than C, for tests that code ignores the locale.
#ifndef TESTS_SUPPORT_LOCALE_H
#define TESTS_SUPPORT_LOCALE_H

#include <string>

#include "support/environment.h"
#include "support/files.h"

namespace rdm::support {

/// ForeignLocale makes strftime and strptime use "Mrz" for March and "Die" for Tuesday for its lifetime. It is derived
/// from the C.utf8 locale, which every system has.
class ForeignLocale {
 public:
  ForeignLocale();
  ForeignLocale(const ForeignLocale &) = delete;
  ForeignLocale &operator=(const ForeignLocale &) = delete;
  ~ForeignLocale();

 private:
  TemporaryDirectory directory_;
  std::string directory_path_ = directory_.path();
  Environment path_{"LOCPATH", directory_path_.c_str()};
};

}  // namespace rdm::support

#endif
