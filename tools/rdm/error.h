// SPDX-License-Identifier: MIT
/// The errors of the client.
#ifndef TOOLS_RDM_ERROR_H
#define TOOLS_RDM_ERROR_H

#include <stdexcept>

#include "catalog/os/error.h"

namespace rdm::client {

// Local errors have the names of the catalog library.
using catalog::Failure;
using catalog::SystemFailure;

/// Refusal is an answer by which the server refuses the request. Its text is the server's.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Distrust: the server could not be reached, or its answer cannot be trusted.
class Distrust : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace rdm::client

#endif
