// SPDX-License-Identifier: MIT
/// Reporting and keeping rejected objects.
#ifndef MINIDBA_OUTPUT_REJECTS_H
#define MINIDBA_OUTPUT_REJECTS_H

#include <optional>
#include <string>

#include "catalog/os/atomic_writer.h"
#include "catalog/stream/soif_stream.h"
#include "tools/minidba/options.h"
#include "tools/minidba/output/progress.h"

namespace rdm::minidba {

/// Rejects writes a line about each rejected object to standard error: input, line, URL and reason. If the options name
/// a file, it writes the bytes of the objects there, unchanged, so that they can be corrected and imported. A dry run
/// writes no file.
class Rejects {
 public:
  /// Rejects opens the file. Throws a Failure if it cannot. The console must outlive this object.
  Rejects(const Options &options, const Console &console);

  /// add reports an object, after clearing the progress line. Throws a Failure if it cannot be read or written.
  void add(SoifStream &stream, const SoifStream::Item &item, const std::string &reason, Progress &progress);
  int64_t count() const { return count_; }
  /// reasons returns a JSON array with an object for each rejected one; empty unless the options ask for JSON.
  std::string reasons() const;
  /// finish must be called before the catalog is changed, commit after it: then every object is either imported or
  /// kept. A Failure of commit says that the descriptions were imported.
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
