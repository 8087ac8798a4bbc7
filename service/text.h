// SPDX-License-Identifier: MIT
/// Formatting texts of any length into blocks of the host allocator.
#ifndef SERVICE_TEXT_H
#define SERVICE_TEXT_H

#include <cstdarg>
#include <cstdio>
#include <initializer_list>

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

/// concatenate returns the texts one after the other, or null if allocation fails.
inline HostText concatenate(std::initializer_list<std::string_view> texts) noexcept {
  size_t length = 0;
  for (const std::string_view text : texts) length += text.size();
  HostText whole(static_cast<char *>(host_alloc(length + 1)));
  if (!whole) return whole;
  char *end = whole.get();
  for (const std::string_view text : texts) end += text.copy(end, text.size());
  *end = '\0';
  return whole;
}

/// shown returns a text for a diagnostic: "(null)" or "(empty)" for such texts.
inline const char *shown(const char *text) noexcept {
  if (text == nullptr) return "(null)";
  return *text == '\0' ? "(empty)" : text;
}

}  // namespace rdm

#endif
