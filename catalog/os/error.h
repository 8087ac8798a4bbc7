// SPDX-License-Identifier: MIT
/// The errors of the catalog library.
#ifndef CATALOG_OS_ERROR_H
#define CATALOG_OS_ERROR_H

#include <stdexcept>
#include <string>

namespace rdm::catalog {

/// Failure is an error for a user: its text is "what failed: object: reason" on one line, without the program's name.
/// Programs do not parse it.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// SystemFailure is the failure of a system call, as opposed to wrong contents of a file.
class SystemFailure : public Failure {
 public:
  using Failure::Failure;
};

/// system_failure returns a SystemFailure with `what` and the message of errno: "fsync FILE: Input/output error".
SystemFailure system_failure(const std::string &what);

/// after_replacing calls `step` after the file at `path` was replaced. If `step` throws a Failure, it throws one whose
/// text begins with "PATH is replaced, but ", so that users do not take the file for the old one.
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
