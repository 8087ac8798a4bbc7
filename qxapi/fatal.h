// SPDX-License-Identifier: MIT
/// Fatal conditions: programming errors after which the process must not go on, whatever NDEBUG says.
#ifndef QXAPI_FATAL_H
#define QXAPI_FATAL_H

#include <cstdio>
#include <cstdlib>

namespace rdm {

/// qx_report_assertion names the module, its line and the condition on standard error, for a programming error that the
/// process survives.
inline void qx_report_assertion(const char *module, int line, const char *condition) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", module, line, condition);
}

/// qx_fatal reports an assertion and aborts.
[[noreturn]] inline void qx_fatal(const char *module, int line, const char *condition) noexcept {
  qx_report_assertion(module, line, condition);
  std::abort();
}

}  // namespace rdm

#define QX_REQUIRE(condition, module, text)                  \
  do {                                                       \
    if (!(condition)) rdm::qx_fatal(module, __LINE__, text); \
  } while (0)

#endif
