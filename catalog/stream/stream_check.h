// SPDX-License-Identifier: MIT
/// Checking that a stream of descriptions is complete.
#ifndef CATALOG_STREAM_STREAM_CHECK_H
#define CATALOG_STREAM_STREAM_CHECK_H

#include <cstdint>
#include <optional>

#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"

namespace rdm::catalog {

/// StreamCheck compares the number of objects in a stream with its export header, an RDMHEADER with
/// minidba-descriptions. Without an export header, a truncated stream cannot be recognised.
class StreamCheck {
 public:
  /// take must be called with each object of the stream in order, the header included.
  void take(const SoifStream::Item &item);

  bool has_export_header() const { return header_.descriptions.has_value(); }
  const ExportHeader &header() const { return header_; }
  /// objects returns the number of objects without the header, malformed ones included.
  int64_t objects() const { return objects_; }

  /// require_end throws a Failure if the stream has an export header and is truncated: it has fewer descriptions than
  /// announced, or ends within one. After a truncated object, `take` may have counted objects that are part of its last
  /// value. require_whole calls require_end, and throws a Failure if there are more descriptions than announced.
  void require_end() const;
  void require_whole() const;

 private:
  struct CutObject {
    int64_t number, offset;
  };

  ExportHeader header_;
  int64_t objects_ = 0;
  std::optional<CutObject> cut_;  // the first object within which the input ends
};

}  // namespace rdm::catalog

#endif
