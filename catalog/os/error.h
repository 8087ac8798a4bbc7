// SPDX-License-Identifier: MIT
/// The errors of the catalog library.
#ifndef CATALOG_OS_ERROR_H
#define CATALOG_OS_ERROR_H

#include <stdexcept>
#include <string>

namespace rdm::catalog {

/// Failure says what could not be done, to which file, and why. Its text is for a user; programs do not read it.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// SystemFailure is a failure of the system, rather than of what a file holds.
class SystemFailure : public Failure {
 public:
  using Failure::Failure;
};

/// system_failure returns a failure that ends with the text of errno: "what: No such file or directory".
SystemFailure system_failure(const std::string &what);

/// after_replacing does what is left to do when a file has been replaced. A failure then says so in front of its
/// reason: who reads it must not take the old file for the one that is there.
template <typename Step>
void after_replacing(const std::string &path, Step step) {
  try {
    step();
  } catch (const Failure &failure) {
    throw Failure(path + " is replaced, but " + failure.what());
  }
}

}  // namespace rdm::catalog

#endif
