// SPDX-License-Identifier: MIT
/// Whose requests a connection carries: those of the client at its other end or, if that is a trusted proxy, those of
/// clients whom it names, one for the connection (PROXY protocol) or one for each request (X-Forwarded-For).
#ifndef HOSTS_RDMD_FRONT_CONNECTION_CLIENT_H
#define HOSTS_RDMD_FRONT_CONNECTION_CLIENT_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/log.h"

namespace rdm::rdmd {

class Server;

/// ConnectionClient is used on the connection's strand.
class ConnectionClient {
 public:
  /// `client` has the address of the socket. `entry` is the connection's in the roster of the server.
  ConnectionClient(Server &server, Roster::Entry &entry, Client client);

  /// text is the address as logs and the plug-in show it.
  const std::string &text() const { return text_; }
  const ClientKey &key() const { return key_; }
  /// has_limits returns true if limits of an address hold: not for clients of Unix sockets, nor for proxies themselves.
  bool has_limits() const { return !key_.is_local() && (!proxy_ || proxy_->key != key_); }

  /// become makes the connection one of `client`, whom its proxy has named. Returns the limit that the client's address
  /// exceeds, if one is.
  std::optional<Trouble> become(const Client &client);
  /// forward makes the connection one of the client that X-Forwarded-For names, if it comes from a trusted proxy.
  /// Returns as become does.
  std::optional<Trouble> forward(std::string_view forwarded_for);
  /// release makes the connection the proxy's own again, between the requests of its clients.
  void release();

 private:
  std::optional<Trouble> assign(const Client &client);

  Server &server_;
  Roster::Entry &entry_;
  std::string text_;
  ClientKey key_;
  std::unique_ptr<Client> proxy_;  // the proxy, if the connection is from a trusted one; it names clients
};

}  // namespace rdm::rdmd

#endif
