// SPDX-License-Identifier: MIT
/// An object of a submission that is rejected, for messages and reports.
#ifndef TOOLS_COMMON_REJECTION_H
#define TOOLS_COMMON_REJECTION_H

#include <cstdint>
#include <optional>
#include <string>

#include "catalog/stream/soif_stream.h"

namespace rdm::tools {

struct Rejection {
  std::string input;  // name of the stream
  int64_t object;     // its number in the stream, from 1
  int64_t line;       // from 1
  int64_t byte;       // offset of its "@"
  std::string url;    // empty if it is not known
  std::string reason;
  std::optional<catalog::SoifStream::Misfit> misfit;
};

/// rejection_of describes an object of a stream. The reason also names a byte count that would fit.
Rejection rejection_of(catalog::SoifStream &stream, const catalog::SoifStream::Item &item, const std::string &reason);

/// line_of returns a line for people, without its newline and without control characters.
std::string line_of(const Rejection &rejection);
/// json_of returns the text of a JSON object. Bytes that are not UTF-8 become U+FFFD.
std::string json_of(const Rejection &rejection);

}  // namespace rdm::tools

#endif
