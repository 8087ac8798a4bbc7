// SPDX-License-Identifier: MIT
/// Environment variables for the scope of a test.
#ifndef TESTS_SUPPORT_ENVIRONMENT_H
#define TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace rdm::support {

/// number_from returns the number in a variable, such as how often a test tries something, or `usual` without it.
template <typename Number>
Number number_from(const char *variable, Number usual) {
  const char *const text = std::getenv(variable);
  return text != nullptr ? static_cast<Number>(std::strtoull(text, nullptr, 10)) : usual;
}

/// Environment sets a variable, or removes it if the value is null, and restores it at the end of its scope. It calls
/// tzset().
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

/// Uncounted redirects the counters of a coverage build for programs started in its scope, because a program that is
/// killed, or has no disk space, would leave a truncated counter file that no other could use.
class Uncounted {
 public:
  static constexpr char nowhere[] = "/dev/null";
  explicit Uncounted(const std::string &directory = nowhere) : counters_("GCOV_PREFIX", directory.c_str()) {}

 private:
  const Environment counters_, errors_{"GCOV_ERROR_FILE", nowhere};
};

}  // namespace rdm::support

#endif
