// SPDX-License-Identifier: MIT
/// Text of a stream that belongs to no object.
#ifndef TOOLS_COMMON_STRAY_TEXT_H
#define TOOLS_COMMON_STRAY_TEXT_H

#include <cstdint>
#include <string>

#include "catalog/stream/soif_stream.h"

namespace rdm::tools {

/// StrayText finds text between the objects of a stream: it may be what is left of one.
class StrayText {
 public:
  /// The stream must outlive the object.
  explicit StrayText(catalog::SoifStream &stream) : stream_(stream) {}

  /// before and at_end return a line for people, with name and line but without a newline, about text before an object
  /// and after the last one; an empty text if there is only white space. Call before with each object in order.
  std::string before(const catalog::SoifStream::Item &item);
  std::string at_end() { return between(end_, stream_.size()); }

 private:
  std::string between(int64_t from, int64_t to);

  catalog::SoifStream &stream_;
  int64_t end_ = 0;  // of the last object
};

}  // namespace rdm::tools

#endif
