// SPDX-License-Identifier: MIT
/// Fatal conditions: programming errors that abort the process, even with NDEBUG.
#ifndef QXAPI_FATAL_H
#define QXAPI_FATAL_H

#include <cstdio>
#include <cstdlib>

namespace rdm {

/// qx_report_assertion writes the module, its line and the condition to standard error. For programming errors that the
/// process survives.
inline void qx_report_assertion(const char *module, int line, const char *condition) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", module, line, condition);
}

/// qx_fatal reports the condition and aborts.
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
