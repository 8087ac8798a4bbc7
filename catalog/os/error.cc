// SPDX-License-Identifier: MIT
#include "catalog/os/error.h"

#include <cerrno>
#include <system_error>

namespace rdm::catalog {

SystemFailure system_failure(const std::string &what) {
  return SystemFailure(what + ": " + std::generic_category().message(errno));
}

}  // namespace rdm::catalog
