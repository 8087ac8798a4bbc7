// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/connection_client.h"

#include <utility>

#include "hosts/rdmd/front/server.h"

namespace rdm::rdmd {
namespace {

/// proxy_of returns `client` if it is a trusted proxy, otherwise null.
std::unique_ptr<Client> proxy_of(const Server &server, Client client) {
  return server.proxies().trusts(client) ? std::make_unique<Client>(std::move(client)) : nullptr;
}

}  // namespace

ConnectionClient::ConnectionClient(Server &server, Roster::Entry &entry, Client client)
    : server_(server),
      entry_(entry),
      text_(client.text),
      key_(client.key),
      proxy_(proxy_of(server, std::move(client))) {}

std::optional<Trouble> ConnectionClient::assign(const Client &client) {
  const auto refused = server_.admission().assign(entry_, client);
  text_ = client.text;
  key_ = client.key;
  return refused;
}

std::optional<Trouble> ConnectionClient::become(const Client &client) {
  const auto refused = assign(client);
  // A proxy may itself be reached through a proxy.
  proxy_ = proxy_of(server_, client);
  return refused;
}

std::optional<Trouble> ConnectionClient::forward(std::string_view forwarded_for) {
  if (!proxy_) return std::nullopt;
  return assign(server_.proxies().forwarded(*proxy_, forwarded_for));
}

void ConnectionClient::release() {
  if (proxy_ && key_ != proxy_->key) assign(*proxy_);
}

}  // namespace rdm::rdmd
