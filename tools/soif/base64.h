// SPDX-License-Identifier: MIT
/// Bytes as base64 (RFC 4648, section 4), with padding and without line breaks.
#ifndef SOIF_BASE64_H
#define SOIF_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace rdm::soif_tool {

std::string base64_of(std::string_view bytes);

/// bytes_of_base64 returns std::nullopt if the text is not what base64_of returns for some bytes.
std::optional<std::string> bytes_of_base64(std::string_view text);

}  // namespace rdm::soif_tool

#endif
