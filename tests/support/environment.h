/// Environment variables for the scope of a test.
#ifndef TESTS_SUPPORT_ENVIRONMENT_H
#define TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace support {

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

}  // namespace support

#endif
