// SPDX-License-Identifier: MIT
/// What stat() says of a file, to recognise that it has not changed.
#ifndef SERVICE_RDS_FILE_STATE_H
#define SERVICE_RDS_FILE_STATE_H

#include <sys/stat.h>

#include <cstdint>

namespace rdm {

/// FileState is the identity of a file and of its content: a rename, a write, a truncation and the removal of the file
/// all change it.
struct FileState {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = -1;
  int64_t modified = 0;  // nanoseconds since 1970
  int64_t changed = 0;   // of the content or the inode

  bool operator==(const FileState &) const = default;
};

/// read_state fills the state of the file `path`. Returns false if it is no regular file or stat() fails.
bool read_state(const char *path, FileState &state) noexcept;

/// file_clock returns the current time in nanoseconds since 1970. Tests replace it.
extern int64_t (*file_clock)() noexcept;

/// is_settled returns true if the state will be another one after the next change of the file. File systems count time
/// in steps: a file that changed within the current step may change again and keep its state.
bool is_settled(const FileState &state) noexcept;

}  // namespace rdm

#endif
