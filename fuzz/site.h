// SPDX-License-Identifier: MIT
/// A service for fuzzers: a catalog of two descriptions, a server description and a configuration.
#ifndef FUZZ_SITE_H
#define FUZZ_SITE_H

#include <string>

#include "fuzz/fuzz.h"

namespace rdm::fuzz {

/// Site writes the files of the service to a temporary directory, which it removes at the end of its scope.
class Site {
 public:
  Site();

  /// configuration returns the path of the file for rdm_init.
  std::string configuration() const { return directory_.path("rdm.conf"); }

 private:
  void write_catalog() const;

  TemporaryDirectory directory_;
};

}  // namespace rdm::fuzz

#endif
