// SPDX-License-Identifier: MIT
/// Files that are written little by little and put in their place when they are whole.
#ifndef CATALOG_OS_ATOMIC_WRITER_H
#define CATALOG_OS_ATOMIC_WRITER_H

#include <string>
#include <string_view>

#include "catalog/os/atomic_file.h"

namespace rdm::catalog {

/// AtomicWriter takes the place of a file, or of none, in one step. Until then the old one can still be read, even as
/// the input of the very run that replaces it.
class AtomicWriter {
 public:
  /// Refuses a target that is there and no regular file: a device would be replaced.
  explicit AtomicWriter(const std::string &target);

  void write(std::string_view bytes);
  /// finish puts what was written onto the disk; commit puts the file in its place.
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
