// SPDX-License-Identifier: MIT
/// Returns memory that requests have freed to the system, a while later: the next requests can use it
/// without a system call.
#ifndef HOSTS_RDMD_FRONT_MEMORY_TRIM_H
#define HOSTS_RDMD_FRONT_MEMORY_TRIM_H

#include <atomic>

#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

class MemoryTrim {
 public:
  explicit MemoryTrim(const io::Executor &strand) : strand_(strand), timer_(strand) {}

  /// released notes that a request has freed its memory. It may be called from any thread and throws nothing.
  void released();
  /// stop ends the waiting; the I/O context then has no work of this object. Call it on the strand, or when no thread
  /// runs the context.
  void stop();

 private:
  void trim_soon();
  void trim();

  io::Executor strand_;
  io::Timer timer_;
  std::atomic<bool> scheduled_ = false, stopped_ = false;
};

}  // namespace rdm::rdmd

#endif
