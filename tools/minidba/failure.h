/// How minidba says that it cannot go on.
#ifndef MINIDBA_FAILURE_H
#define MINIDBA_FAILURE_H

#include <stdexcept>
#include <string>

namespace minidba {

/// Failure ends the program with its text on one line of standard error and exit status 2.
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

}  // namespace minidba

#endif
