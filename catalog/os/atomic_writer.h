// SPDX-License-Identifier: MIT
/// Writing a file from first to last byte, and replacing an existing one atomically.
#ifndef CATALOG_OS_ATOMIC_WRITER_H
#define CATALOG_OS_ATOMIC_WRITER_H

#include <string>
#include <string_view>

#include "catalog/os/atomic_file.h"

namespace rdm::catalog {

/// AtomicWriter buffers appends to an AtomicFile. Until commit the old file stays readable, even as the input of the
/// run that replaces it.
class AtomicWriter {
 public:
  /// AtomicWriter throws a Failure if the target exists and is not a regular file: rename would replace a device.
  explicit AtomicWriter(const std::string &target);

  /// write appends bytes. Throws a SystemFailure.
  void write(std::string_view bytes);
  /// finish writes the buffered bytes and calls AtomicFile::sync; commit then renames the file over the target.
  void finish();
  void commit() { file_.commit(); }

 private:
  void flush();

  AtomicFile file_;
  std::string unwritten_;
  int64_t size_ = 0;
};

}  // namespace rdm::catalog

#endif
