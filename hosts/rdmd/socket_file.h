// SPDX-License-Identifier: MIT
/// Unix-domain listening sockets and the files that name them.
///
/// A file outlives a server that is killed. Such a file is recognised by ECONNREFUSED and replaced; a file whose server
/// answers means that the address is in use.
#ifndef HOSTS_RDMD_SOCKET_FILE_H
#define HOSTS_RDMD_SOCKET_FILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "hosts/rdmd/listen_address.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// unix_path returns PATH of "unix:PATH", or std::nullopt for another text.
std::optional<std::string> unix_path(std::string_view text);

/// SocketFile owns the file of a listening socket. The destructor removes the file, unless another process runs it (a
/// child that was forked) or the path names another file by now.
class SocketFile {
 public:
  SocketFile() = default;
  /// Owns the file that `path` names now.
  explicit SocketFile(std::string path);
  SocketFile(SocketFile &&other) noexcept { swap(other); }
  SocketFile &operator=(SocketFile &&other) noexcept {
    swap(other);
    return *this;
  }
  ~SocketFile() { remove(); }

  explicit operator bool() const { return !path_.empty(); }
  /// is_current returns true if the path still names the file.
  bool is_current() const;
  /// remove removes the file now, under the conditions of the destructor.
  void remove();
  /// keep leaves the file to another process, which took the socket over.
  void keep() { path_.clear(); }

 private:
  void swap(SocketFile &other) noexcept;

  std::string path_;  // empty: no file
  dev_t device_ = 0;
  ino_t inode_ = 0;
  pid_t process_ = 0;
};

/// UnixSocket is a bound socket and its file.
struct UnixSocket {
  HostFileGuard socket;
  SocketFile file;
};

/// bind_unix returns a close-on-exec, non-blocking socket that is bound to `path` but does not listen. The umask
/// determines who may connect. Throws ListenError with the text "unix:PATH": EADDRINUSE if a server listens on the path
/// or the path names another kind of file.
UnixSocket bind_unix(const std::string &path);

/// check_unix throws the ListenError that bind_unix would throw, except that a server that listens there is no error.
/// It changes no file: the socket of a path that does not exist is bound for a moment and removed.
void check_unix(const std::string &path);

}  // namespace rdm::rdmd

#endif
