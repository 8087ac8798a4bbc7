// SPDX-License-Identifier: MIT
/// Formatting texts of any length into blocks of the host allocator.
#ifndef SERVICE_TEXT_H
#define SERVICE_TEXT_H

#include <cstdarg>
#include <cstdio>

#include "qxapi/guard.h"

namespace rdm {

/// format_text returns a formatted text, or null if allocation fails.
inline HostText format_text(const char *format, ...) noexcept QX_PRINTF(1, 2);
inline HostText format_text(const char *format, ...) noexcept {
  va_list arguments, measured;
  va_start(arguments, format);
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  HostText text(length < 0 ? nullptr : static_cast<char *>(host_alloc(static_cast<size_t>(length) + 1)));
  if (text) std::vsnprintf(text.get(), static_cast<size_t>(length) + 1, format, arguments);
  va_end(arguments);
  return text;
}

/// shown returns a text for a diagnostic: "(null)" or "(empty)" for such texts.
inline const char *shown(const char *text) noexcept {
  if (text == nullptr) return "(null)";
  return *text == '\0' ? "(empty)" : text;
}

}  // namespace rdm

#endif
