// SPDX-License-Identifier: MIT
/// Environment variables for the scope of a test.
#ifndef TESTS_SUPPORT_ENVIRONMENT_H
#define TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace rdm::support {

/// Environment sets a variable, or removes it for null, and restores it at the end of its scope. The time zone follows.
class Environment {
 public:
  Environment(const char *name, const char *value) : name_(name) {
    if (const char *before = std::getenv(name)) before_ = before;
    set(value);
  }
  Environment(const Environment &) = delete;
  Environment &operator=(const Environment &) = delete;
  ~Environment() { set(before_ ? before_->c_str() : nullptr); }

 private:
  void set(const char *value) const {
    if (value != nullptr)
      ::setenv(name_, value, 1);
    else
      ::unsetenv(name_);
    ::tzset();
  }

  const char *name_;
  std::optional<std::string> before_;
};

/// Uncounted keeps the programs started in its scope from the files in which a coverage build counts: one that is
/// killed or has no room would leave half a file, which no other could go on with. What they count goes to a directory,
/// or nowhere, which they say among their errors.
class Uncounted {
 public:
  static constexpr char nowhere[] = "/dev/null";
  explicit Uncounted(const std::string &directory = nowhere) : counters_("GCOV_PREFIX", directory.c_str()) {}

 private:
  const Environment counters_, errors_{"GCOV_ERROR_FILE", nowhere};
};

}  // namespace rdm::support

#endif
