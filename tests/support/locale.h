// SPDX-License-Identifier: MIT
/// A locale other than C, without which no test can tell that something ignores the locale.
#ifndef TESTS_SUPPORT_LOCALE_H
#define TESTS_SUPPORT_LOCALE_H

#include <string>

#include "support/environment.h"
#include "support/files.h"

namespace rdm::support {

/// ForeignLocale makes strftime and strptime call March "Mrz" and Tuesday "Die" for its lifetime. It is made from the
/// C.utf8 locale, which every system has.
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
