// SPDX-License-Identifier: MIT
/// Whether a stream of descriptions is whole.
#ifndef CATALOG_STREAM_STREAM_CHECK_H
#define CATALOG_STREAM_STREAM_CHECK_H

#include <cstdint>
#include <optional>

#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"

namespace rdm::catalog {

/// StreamCheck compares the objects of a stream with the export header in front of them. An export header is an
/// RDMHEADER that says how many descriptions follow. A stream without one can end anywhere without being noticed.
class StreamCheck {
 public:
  /// take comes for each object of the stream in turn, the header included.
  void take(const SoifStream::Item &item);

  bool has_export_header() const { return header_.descriptions.has_value(); }
  const ExportHeader &header() const { return header_; }
  /// objects returns how many objects there were, malformed ones included, the header not.
  int64_t objects() const { return objects_; }

  /// require_end throws a Failure if the end of the stream is missing: there are fewer descriptions than the export
  /// header announces, or the input ends within one. What follows a cut object lies within a value of it, although it
  /// may look like objects. require_whole throws also if there are more descriptions than announced.
  void require_end() const;
  void require_whole() const;

 private:
  struct Place {
    int64_t number, offset;
  };

  ExportHeader header_;
  int64_t objects_ = 0;
  std::optional<Place> cut_;  // the first object within which the input ends
};

}  // namespace rdm::catalog

#endif
