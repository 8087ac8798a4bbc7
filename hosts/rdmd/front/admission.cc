// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/admission.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>

#include "hosts/rdmd/front/connection.h"

namespace rdm::rdmd {
namespace {

/// How many clients beyond the connection limit are answered 503 at once; further ones are closed without an answer.
constexpr std::size_t turned_away_limit = 64;
/// How many of them may be beyond the limits of one address.
constexpr std::size_t address_turned_away_limit = 8;
/// The least number of connections that the default limit grants to an address.
constexpr std::size_t least_address_limit = 64;
/// The minimum time between two log lines about a shortage.
constexpr std::chrono::minutes shortage_interval{1};
/// Descriptors reserved for everything but the clients served: clients turned away, listening sockets, logs, and the
/// files of one request.
constexpr std::size_t reserved_descriptors = turned_away_limit + 32;
/// The part of them that is needed even if no client is turned away.
constexpr std::size_t least_reserved_descriptors = 32;

/// allow_descriptors raises RLIMIT_NOFILE to its hard limit and returns it.
std::size_t allow_descriptors() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::numeric_limits<std::size_t>::max();
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

/// descriptors_for returns how many descriptors `connections` connections may need: each needs one for its socket and,
/// while it is answered, one for a file.
std::size_t descriptors_for(std::size_t connections) { return 2 * connections + reserved_descriptors; }

/// connections_within returns how many connections a limit of open files allows, at least one. A quarter of a low limit
/// is reserved.
std::size_t connections_within(std::size_t descriptors) {
  const std::size_t reserved = std::clamp(descriptors / 4, least_reserved_descriptors, reserved_descriptors);
  return descriptors > reserved ? descriptors - reserved : 1;
}

/// limit_clients returns how many clients are served at once if `wanted` are to be. Warns if the limit of open files is
/// too low for them.
std::size_t limit_clients(std::size_t wanted, ErrorLog &errors) {
  const std::size_t files = allow_descriptors();
  if (files < descriptors_for(wanted))
    errors.warn("the limit of open files is " + std::to_string(files) + ", but " + std::to_string(wanted) +
                " connections may need " + std::to_string(descriptors_for(wanted)) +
                "; raise it (ulimit -n, LimitNOFILE) or lower --max-connections");
  return std::min(wanted, connections_within(files));
}

/// end_waiting ends a waiting connection, which the roster has chosen, in favour of a new client. Returns false for
/// null.
bool end_waiting(const std::shared_ptr<Connection> &connection, bool at_once) {
  if (connection) connection->make_way(at_once);
  return connection != nullptr;
}

}  // namespace

Admission::Admission(const Limits &limits, const Proxies &proxies, Roster &roster, ErrorLog &errors)
    : limits_(limits),
      proxies_(proxies),
      roster_(roster),
      errors_(errors),
      client_limit_(limit_clients(limits.connections, errors)),
      address_limit_(limits.connections_per_address.value_or(std::max(limits.connections / 2, least_address_limit))),
      address_rate_(limits.rate_per_address) {}

std::optional<Trouble> Admission::find_refusal(const Client &client) {
  if (const auto refused = find_address_refusal(client)) return refused;
  if (!make_room()) return Trouble::turned_away;
  return std::nullopt;
}

/// find_address_refusal returns the limit of the client's address that is exceeded. Proxies have none: they bring many
/// clients.
std::optional<Trouble> Admission::find_address_refusal(const Client &client) {
  if (client.key.is_local() || proxies_.trusts(client)) return std::nullopt;
  if (!address_rate_.take(client.key, io::Clock::now())) return Trouble::address_rate;
  if (!make_room_for(client.key)) return Trouble::address_full;
  return std::nullopt;
}

/// make_room_for returns true if the address may have another connection.
bool Admission::make_room_for(const ClientKey &key) {
  if (address_limit_ == 0 || roster_.counts(key).served < address_limit_) return true;
  return end_waiting(roster_.take_waiting(key), false);
}

/// make_room returns true if another client can be served.
bool Admission::make_room() {
  if (roster_.counts().served < client_limit_) return true;
  if (client_limit_ < limits_.connections) note_shortage("the limit of open files is reached");
  return end_waiting(roster_.take_waiting(), false);
}

bool Admission::relieve(const std::string &shortage) {
  note_shortage(shortage);
  return end_waiting(roster_.take_waiting(), true);
}

void Admission::note_shortage(const std::string &shortage) {
  const auto now = io::Clock::now();
  if (now < next_shortage_line_) return;
  next_shortage_line_ = now + shortage_interval;
  errors_.warn("accept: " + shortage + ": closing idle connections to serve new clients");
}

std::optional<Trouble> Admission::assign(Roster::Entry &entry, const Client &client) {
  const auto refused = find_address_refusal(client);
  if (!refused) roster_.assign(entry, client.key);
  return refused;
}

bool Admission::may_turn_away(const ClientKey &key, Trouble reason) const {
  if (roster_.counts().turned_away >= turned_away_limit) return false;
  return reason == Trouble::turned_away || roster_.counts(key).turned_away < address_turned_away_limit;
}

bool Admission::turn_away(Roster::Entry &entry, const ClientKey &key, Trouble reason) {
  if (!may_turn_away(key, reason)) return false;
  roster_.turn_away(entry);
  roster_.assign(entry, key);
  return true;
}

}  // namespace rdm::rdmd
