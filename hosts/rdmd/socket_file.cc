// SPDX-License-Identifier: MIT
#include "hosts/rdmd/socket_file.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace rdm::rdmd {
namespace {

constexpr std::string_view scheme = "unix:";

[[noreturn]] void fail(const std::string &path, int code, const std::string &hint = {}) {
  throw ListenError(std::string(scheme) + path, std::generic_category().message(code) + hint, code);
}

sockaddr_un address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.find('\0') != std::string::npos) fail(path, EINVAL);
  if (path.size() >= sizeof address.sun_path) fail(path, ENAMETOOLONG);
  path.copy(address.sun_path, path.size());
  return address;
}

HostFileGuard new_socket(const std::string &path) {
  HostFileGuard socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) fail(path, errno);
  return socket;
}

const sockaddr *generic(const sockaddr_un &address) { return reinterpret_cast<const sockaddr *>(&address); }

/// require_socket throws if the path names a file that is no socket.
void require_socket(const std::string &path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode))
    fail(path, EADDRINUSE, ": the file is not a socket; remove it or choose another path");
}

/// is_stale returns true if no server listens on the path. A full queue (EAGAIN) belongs to a server that lives.
bool is_stale(const std::string &path) {
  const sockaddr_un address = address_of(path);
  const HostFileGuard probe = new_socket(path);
  return ::connect(probe.get(), generic(address), sizeof address) != 0 && errno == ECONNREFUSED;
}

/// try_bind returns 0, or the errno of bind().
int try_bind(host_fd socket, const std::string &path) {
  const sockaddr_un address = address_of(path);
  return ::bind(socket, generic(address), sizeof address) == 0 ? 0 : errno;
}

}  // namespace

std::optional<std::string> unix_path(std::string_view text) {
  if (!text.starts_with(scheme)) return std::nullopt;
  return std::string(text.substr(scheme.size()));
}

SocketFile::SocketFile(std::string path) : path_(std::move(path)), process_(::getpid()) {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) path_.clear();
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

void SocketFile::swap(SocketFile &other) noexcept {
  std::swap(path_, other.path_);
  std::swap(device_, other.device_);
  std::swap(inode_, other.inode_);
  std::swap(process_, other.process_);
}

bool SocketFile::is_current() const {
  struct stat status;
  return ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

void SocketFile::remove() {
  if (!path_.empty() && process_ == ::getpid() && is_current()) ::unlink(path_.c_str());
  path_.clear();
}

UnixSocket bind_unix(const std::string &path) {
  HostFileGuard socket = new_socket(path);
  int code = try_bind(socket.get(), path);
  if (code == EADDRINUSE) {
    require_socket(path);
    if (is_stale(path) && ::unlink(path.c_str()) == 0) code = try_bind(socket.get(), path);
  }
  if (code != 0) fail(path, code);
  return {std::move(socket), SocketFile(path)};
}

void check_unix(const std::string &path) {
  const HostFileGuard socket = new_socket(path);
  const int code = try_bind(socket.get(), path);
  if (code == 0)
    SocketFile(path).remove();
  else if (code == EADDRINUSE)
    require_socket(path);
  else
    fail(path, code);
}

}  // namespace rdm::rdmd
