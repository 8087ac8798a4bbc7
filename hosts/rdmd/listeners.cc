// SPDX-License-Identifier: MIT
#include "hosts/rdmd/listeners.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace rdm::rdmd {
namespace {

using Warn = std::function<void(const std::string &)>;
using Inherited = std::vector<InheritedSocket>;

/// The end of the name of an inherited Unix socket whose file its former owner leaves to this process.
constexpr std::string_view file_mark = "-file";

/// take removes the first inherited socket whose address satisfies `matches`, and returns it or an empty socket.
template <typename Matches>
InheritedSocket take(Inherited &inherited, Matches matches) {
  const auto found = std::find_if(inherited.begin(), inherited.end(),
                                  [&](const InheritedSocket &one) { return matches(local_address(one.socket.get())); });
  if (found == inherited.end()) return InheritedSocket();
  InheritedSocket socket = std::move(*found);
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

ListeningSocket taken_over(InheritedSocket inherited) {
  ListeningSocket made = named(std::move(inherited.socket));
  made.takes_file = inherited.name.ends_with(file_mark) && unix_path(made.address).has_value();
  return made;
}

ListeningSocket open_unix(const std::string &path, Inherited &inherited) {
  const std::string text = "unix:" + path;
  InheritedSocket socket = take(inherited, [&](const ListenAddress &address) { return address.text() == text; });
  if (socket.socket) return taken_over(std::move(socket));
  UnixSocket bound = bind_unix(path);
  ListeningSocket made = named(std::move(bound.socket));
  made.file = std::move(bound.file);
  return made;
}

std::vector<ListeningSocket> open_named(const std::string &text, Inherited &inherited, const Warn &warn) {
  std::vector<ListeningSocket> sockets;
  if (const auto path = unix_path(text)) {
    sockets.push_back(open_unix(*path, inherited));
    return sockets;
  }
  BoundSockets bound = bind_listen(text, [&](const ListenAddress &wanted) {
    return take(inherited, [&](const ListenAddress &address) { return wanted.covers(address); }).socket;
  });
  const std::string failure = "cannot listen on " + text + ": ";
  for (const std::string &missing : bound.missing) warn(failure + missing + "; listening on its other addresses");
  for (HostFileGuard &socket : bound.sockets) sockets.push_back(named(std::move(socket)));
  return sockets;
}

/// open_all appends the sockets of these addresses.
void open_all(const std::vector<std::string> &texts, bool tls, Inherited &inherited,
              std::vector<ListeningSocket> &sockets, const Warn &warn) {
  for (const std::string &text : texts)
    for (ListeningSocket &socket : open_named(text, inherited, warn)) {
      socket.tls = tls;
      sockets.push_back(std::move(socket));
    }
}

bool names_none(const Settings &settings) { return settings.listen.empty() && settings.tls_listen.empty(); }

/// serve_all appends all inherited sockets.
void serve_all(Inherited inherited, std::vector<ListeningSocket> &sockets) {
  for (InheritedSocket &one : inherited) {
    const bool tls = one.name.starts_with("tls");
    sockets.push_back(taken_over(std::move(one)));
    sockets.back().tls = tls;
  }
}

/// check_admin throws a ListenError if a socket of the administration endpoint has the address of another. Both can be
/// bound, because neither listens yet.
void check_admin(const std::vector<ListeningSocket> &sockets) {
  for (const ListeningSocket &one : sockets)
    for (const ListeningSocket &other : sockets)
      if (one.admin && !other.admin && local_address(one.socket.get()).covers(local_address(other.socket.get())))
        throw ListenError(one.address, "--admin needs an address that --listen does not have", EADDRINUSE);
}

}  // namespace

std::vector<std::string> listen_texts(const Settings &settings) {
  if (names_none(settings)) return {default_listen};
  std::vector<std::string> texts = settings.listen;
  texts.insert(texts.end(), settings.tls_listen.begin(), settings.tls_listen.end());
  return texts;
}

std::vector<ListeningSocket> open_listeners(const Settings &settings, Inherited inherited, const Warn &warn) {
  drop_others(inherited, warn);
  std::vector<ListeningSocket> sockets;
  if (!settings.admin.empty()) open_all({settings.admin}, false, inherited, sockets, warn);
  for (ListeningSocket &socket : sockets) socket.admin = true;
  if (names_none(settings) && !inherited.empty())
    serve_all(std::exchange(inherited, {}), sockets);
  else
    open_all(names_none(settings) ? std::vector<std::string>{default_listen} : settings.listen, false, inherited,
             sockets, warn);
  open_all(settings.tls_listen, true, inherited, sockets, warn);
  for (const InheritedSocket &one : inherited)
    warn("no option names the inherited socket " + local_address(one.socket.get()).text() + ": closed");
  check_admin(sockets);
  return sockets;
}

std::string inherited_name(const ListeningSocket &socket) {
  const std::string name = socket.tls ? "tls" : "plain";
  return socket.file || socket.takes_file ? name + std::string(file_mark) : name;
}

void begin_listening(host_fd socket, ListeningSocket &from) {
  // Two servers that start at the same time may both bind a path: the second replaces the file of the first, which does
  // not listen yet.
  const bool replaced = from.file && !from.file.is_current();
  const int code = replaced ? EADDRINUSE : ::listen(socket, SOMAXCONN) != 0 ? errno : 0;
  if (code != 0) throw ListenError(from.address, std::generic_category().message(code), code);
  if (std::exchange(from.takes_file, false)) from.file = SocketFile(*unix_path(from.address));
}

}  // namespace rdm::rdmd
