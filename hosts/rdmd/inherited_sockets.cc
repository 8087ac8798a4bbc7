// SPDX-License-Identifier: MIT
#include "hosts/rdmd/inherited_sockets.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

constexpr host_fd first_inherited = 3;
/// More descriptors than any caller passes: a limit for a malformed count.
constexpr int most_inherited = 1024;

std::string take_variable(const char *name) {
  const char *const value = std::getenv(name);
  std::string text = value != nullptr ? value : "";
  ::unsetenv(name);
  return text;
}

/// next_name removes the text up to the first ":" from `names` and returns it.
std::string next_name(std::string_view &names) {
  const std::size_t end = std::min(names.find(':'), names.size());
  std::string name(names.substr(0, end));
  names.remove_prefix(std::min(end + 1, names.size()));
  return name;
}

int integer_option(host_fd socket, int option) {
  int value = 0;
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

}  // namespace

std::vector<InheritedSocket> take_inherited_sockets() {
  const std::string process = take_variable("LISTEN_PID"), number = take_variable("LISTEN_FDS"),
                    all_names = take_variable("LISTEN_FDNAMES");
  std::vector<InheritedSocket> sockets;
  const int count = parse_number<int>(number).value_or(0);
  if (parse_number<pid_t>(process) != ::getpid() || count > most_inherited) return sockets;
  std::string_view names = all_names;
  for (host_fd fd = first_inherited; fd < first_inherited + count; ++fd) {
    std::string name = next_name(names);
    if (::fcntl(fd, F_SETFD, FD_CLOEXEC) == -1) continue;
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    sockets.push_back({HostFileGuard(fd), std::move(name)});
  }
  return sockets;
}

bool is_listening_stream(host_fd socket) {
  const int family = integer_option(socket, SO_DOMAIN);
  return (family == AF_INET || family == AF_INET6 || family == AF_UNIX) &&
         integer_option(socket, SO_TYPE) == SOCK_STREAM && integer_option(socket, SO_ACCEPTCONN) == 1;
}

}  // namespace rdm::rdmd
