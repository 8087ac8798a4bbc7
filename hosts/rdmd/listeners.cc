// SPDX-License-Identifier: MIT
#include "hosts/rdmd/listeners.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace rdm::rdmd {
namespace {

using Warn = std::function<void(const std::string &)>;
using Inherited = std::vector<InheritedSocket>;

/// take removes the first inherited socket whose address satisfies `matches`, and returns it or an empty guard.
template <typename Matches>
HostFileGuard take(Inherited &inherited, Matches matches) {
  const auto found = std::find_if(inherited.begin(), inherited.end(),
                                  [&](const InheritedSocket &one) { return matches(local_address(one.socket.get())); });
  if (found == inherited.end()) return HostFileGuard();
  HostFileGuard socket = std::move(found->socket);
  inherited.erase(found);
  return socket;
}

/// drop_others closes the inherited descriptors that are no listening sockets.
void drop_others(Inherited &inherited, const Warn &warn) {
  for (const InheritedSocket &one : inherited)
    if (!is_listening_stream(one.socket.get()))
      warn("inherited descriptor " + std::to_string(one.socket.get()) + " is not a listening stream socket: closed");
  std::erase_if(inherited, [](const InheritedSocket &one) { return !is_listening_stream(one.socket.get()); });
}

ListeningSocket named(HostFileGuard socket) {
  ListeningSocket made;
  made.address = local_address(socket.get()).text();
  made.socket = std::move(socket);
  return made;
}

ListeningSocket open_unix(const std::string &path, Inherited &inherited) {
  const std::string text = "unix:" + path;
  HostFileGuard socket = take(inherited, [&](const ListenAddress &address) { return address.text() == text; });
  if (socket) return named(std::move(socket));
  UnixSocket bound = bind_unix(path);
  ListeningSocket made = named(std::move(bound.socket));
  made.file = std::move(bound.file);
  return made;
}

void open_named(const std::string &text, Inherited &inherited, std::vector<ListeningSocket> &sockets,
                const Warn &warn) {
  if (const auto path = unix_path(text)) return sockets.push_back(open_unix(*path, inherited));
  BoundSockets bound = bind_listen(text, [&](const ListenAddress &wanted) {
    return take(inherited, [&](const ListenAddress &address) { return wanted.covers(address); });
  });
  for (const std::string &missing : bound.missing)
    warn("cannot listen on " + text + ": " + missing + "; listening on its other addresses");
  for (HostFileGuard &socket : bound.sockets) sockets.push_back(named(std::move(socket)));
}

}  // namespace

std::vector<std::string> listen_texts(const Settings &settings) {
  if (settings.listen.empty()) return {default_listen};
  return settings.listen;
}

std::vector<ListeningSocket> open_listeners(const Settings &settings, Inherited inherited, const Warn &warn) {
  drop_others(inherited, warn);
  const bool all_inherited = settings.listen.empty() && !inherited.empty();
  std::vector<ListeningSocket> sockets;
  if (!all_inherited)
    for (const std::string &text : listen_texts(settings)) open_named(text, inherited, sockets, warn);
  for (InheritedSocket &one : inherited)
    if (all_inherited)
      sockets.push_back(named(std::move(one.socket)));
    else
      warn("no --listen names the inherited socket " + local_address(one.socket.get()).text() + ": closed");
  return sockets;
}

void begin_listening(host_fd socket, const ListeningSocket &from) {
  // Two servers that start at the same time may both bind a path: the second replaces the file of the first, which does
  // not listen yet.
  const bool replaced = from.file && !from.file.is_current();
  const int code = replaced ? EADDRINUSE : ::listen(socket, SOMAXCONN) != 0 ? errno : 0;
  if (code != 0) throw ListenError(from.address, std::generic_category().message(code), code);
}

}  // namespace rdm::rdmd
