// SPDX-License-Identifier: MIT
#include "hosts/rdmd/listen_address.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

/// How many free ports are tried, since a port that is free on one address may be in use on another.
constexpr int free_port_attempts = 16;

using AddressList = std::unique_ptr<addrinfo, Deleter<::freeaddrinfo>>;

struct HostPort {
  std::string host;
  std::string port;
};

std::string reason_of(int code) { return std::generic_category().message(code); }

/// is_port returns true for a number from 0 to 65535. getaddrinfo() would silently use the low 16 bits of a larger one.
bool is_port(std::string_view text) { return parse_number<std::uint16_t>(text).has_value(); }

HostPort split_address(const std::string &text) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
    throw ListenError(text, "HOST:PORT is required");
  std::string host = text.substr(0, colon);
  const bool bracketed = host.front() == '[' && host.back() == ']';
  if (!bracketed && host.find(':') != std::string::npos)
    throw ListenError(text, "an IPv6 address must be in brackets, such as [::1]:8380");
  if (bracketed) host = host.substr(1, host.size() - 2);
  std::string port = text.substr(colon + 1);
  if (!is_port(port)) throw ListenError(text, "the port is a number from 0 to 65535");
  return {std::move(host), std::move(port)};
}

AddressList look_up(const std::string &text) {
  const auto [host, port] = split_address(text);
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo *found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
  const int code = error == EAI_SYSTEM ? errno : 0;
  if (error != 0) throw ListenError(text, code != 0 ? reason_of(code) : ::gai_strerror(error), code);
  return AddressList(found);
}

bool same(const ListenAddress &one, const ListenAddress &other) {
  return one.size == other.size && std::memcmp(&one.storage, &other.storage, one.size) == 0;
}

/// is_missing returns true if bind() failed because this machine does not have the address.
bool is_missing(int code) { return code == EADDRNOTAVAIL || code == EAFNOSUPPORT; }

/// is_same_host returns true if two addresses of one family differ at most in the port.
bool is_same_host(const ListenAddress &one, ListenAddress other) {
  other.set_port(one.port());
  return same(one, other);
}

/// name_of returns the path of a Unix socket, or "@NAME" of an abstract one.
std::string name_of(const sockaddr_un &address, socklen_t size) {
  const std::size_t length = size - std::min<std::size_t>(size, offsetof(sockaddr_un, sun_path));
  std::string name(address.sun_path, std::min(length, sizeof address.sun_path));
  if (name.empty() || name.front() != '\0') return name.substr(0, name.find('\0'));
  name.front() = '@';
  return name;
}

/// bind_all returns a socket for each address. If the port is 0, all use the port of the first socket.
BoundSockets bind_all(const std::string &text, std::vector<ListenAddress> addresses, const TakeSocket &take) {
  BoundSockets bound;
  int missing = 0;
  for (ListenAddress &address : addresses) {
    if (!bound.sockets.empty()) address.set_port(local_address(bound.sockets.front().get()).port());
    HostFileGuard socket = take ? take(address) : HostFileGuard();
    if (!socket) socket = bind_address(address, addresses.size() > 1);
    if (!socket && !is_missing(errno)) throw ListenError(text, reason_of(errno), errno);
    if (!socket) {
      missing = errno;
      bound.missing.push_back(address.text() + ": " + reason_of(missing));
    } else {
      bound.sockets.push_back(std::move(socket));
    }
  }
  if (bound.sockets.empty()) throw ListenError(text, reason_of(missing), missing);
  return bound;
}

}  // namespace

std::uint16_t ListenAddress::port() const {
  if (family() == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6 &>(storage).sin6_port);
  return ntohs(reinterpret_cast<const sockaddr_in &>(storage).sin_port);
}

void ListenAddress::set_port(std::uint16_t port) {
  if (family() == AF_INET6)
    reinterpret_cast<sockaddr_in6 &>(storage).sin6_port = htons(port);
  else
    reinterpret_cast<sockaddr_in &>(storage).sin_port = htons(port);
}

bool ListenAddress::covers(const ListenAddress &other) const {
  if (family() != other.family() || size != other.size) return false;
  if (family() != AF_INET && family() != AF_INET6) return same(*this, other);
  return (port() == 0 || port() == other.port()) && is_same_host(*this, other);
}

std::string ListenAddress::text() const {
  if (family() == AF_UNIX) return "unix:" + name_of(reinterpret_cast<const sockaddr_un &>(storage), size);
  char host[NI_MAXHOST] = "", number[NI_MAXSERV] = "";
  ::getnameinfo(reinterpret_cast<const sockaddr *>(&storage), size, host, sizeof host, number, sizeof number,
                NI_NUMERICHOST | NI_NUMERICSERV);
  const std::string open = family() == AF_INET6 ? "[" : "", close = family() == AF_INET6 ? "]" : "";
  return open + host + close + ":" + number;
}

std::vector<ListenAddress> resolve_listen(const std::string &text) {
  const AddressList found = look_up(text);
  std::vector<ListenAddress> addresses;
  for (const addrinfo *next = found.get(); next != nullptr; next = next->ai_next) {
    ListenAddress address;
    address.size = next->ai_addrlen;
    std::memcpy(&address.storage, next->ai_addr, next->ai_addrlen);
    if (std::none_of(addresses.begin(), addresses.end(), [&](const auto &one) { return same(one, address); }))
      addresses.push_back(address);
  }
  return addresses;
}

HostFileGuard bind_address(const ListenAddress &address, bool v6_only) {
  HostFileGuard socket(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return HostFileGuard();
  if (v6_only && address.family() == AF_INET6) ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address.storage), address.size) == 0) return socket;
  const int code = errno;
  socket = HostFileGuard();
  errno = code;
  return socket;
}

BoundSockets bind_listen(const std::string &text, const TakeSocket &take) {
  const std::vector<ListenAddress> addresses = resolve_listen(text);
  const bool any_port = addresses.front().port() == 0 && addresses.size() > 1;
  for (int attempt = 1;; ++attempt) {
    try {
      return bind_all(text, addresses, take);
    } catch (const ListenError &error) {
      if (!any_port || error.code() != EADDRINUSE || attempt == free_port_attempts) throw;
    }
  }
}

ListenAddress local_address(host_fd socket) {
  ListenAddress address;
  address.size = sizeof address.storage;
  ::getsockname(socket, reinterpret_cast<sockaddr *>(&address.storage), &address.size);
  return address;
}

}  // namespace rdm::rdmd
