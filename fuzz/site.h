// SPDX-License-Identifier: MIT
/// A service to be asked: one catalog of two descriptions, its server description and its configuration.
#ifndef FUZZ_SITE_H
#define FUZZ_SITE_H

#include <string>

#include "fuzz/fuzz.h"

namespace rdm::fuzz {

class Site {
 public:
  Site();

  /// configuration is the file that rdm_init is called with.
  std::string configuration() const { return directory_.path("rdm.conf"); }

 private:
  void write_catalog() const;

  TemporaryDirectory directory_;
};

}  // namespace rdm::fuzz

#endif
