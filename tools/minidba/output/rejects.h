// SPDX-License-Identifier: MIT
/// What became of the objects of a stream that were refused.
#ifndef MINIDBA_OUTPUT_REJECTS_H
#define MINIDBA_OUTPUT_REJECTS_H

#include <optional>
#include <string>

#include "catalog/os/atomic_writer.h"
#include "catalog/stream/soif_stream.h"
#include "tools/minidba/options.h"
#include "tools/minidba/output/progress.h"

namespace rdm::minidba {

/// Rejects names refused objects, with their line, URL and reason, and, where a file is given for them, keeps their
/// bytes as they came, so that they can be mended and fed again. A dry run only names them.
class Rejects {
 public:
  Rejects(const Options &options, const Console &console);

  void add(SoifStream &stream, const SoifStream::Item &item, const std::string &reason, Progress &progress);
  int64_t count() const { return count_; }
  /// reasons returns a JSON array with an object for each refused one, for a report as JSON.
  std::string reasons() const;
  /// finish comes before the catalog is changed, so that no object is neither taken in nor kept; commit after it, and
  /// says so where it fails.
  void finish();
  void commit();

 private:
  const Console &console_;
  std::optional<AtomicWriter> file_;
  std::optional<ScratchFile> reasons_;  // the elements of the array; there may be millions
  int64_t reasons_size_ = 0;
  int64_t count_ = 0;
};

}  // namespace rdm::minidba

#endif
