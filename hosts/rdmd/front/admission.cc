// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/admission.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/resource_limits.h"

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
/// Descriptors for clients turned away, of which a limit of open files that is low leaves fewer.
constexpr std::size_t turned_away_descriptors = 48;

/// connections_within returns how many connections a limit of open files allows, at least one, if `reserved` of them
/// are for other things. A quarter of a low limit is left for those and for clients turned away.
std::size_t connections_within(std::size_t descriptors, std::size_t reserved) {
  const std::size_t left = std::clamp(descriptors / 4, reserved, reserved + turned_away_descriptors);
  return descriptors > left ? descriptors - left : 1;
}

/// limit_clients returns how many clients are served at once. Warns if the limit of open files is too low for those
/// wanted.
std::size_t limit_clients(const Settings &settings, ErrorLog &errors) {
  const std::size_t wanted = settings.limits.connections, reserved = reserved_descriptors(settings);
  const std::size_t files = allow_descriptors(), needed = descriptors_for(wanted) + turned_away_descriptors + reserved;
  if (files < needed)
    errors.warn("the limit of open files is " + std::to_string(files) + ", but " + std::to_string(wanted) +
                " connections may need " + std::to_string(needed) +
                "; raise it (ulimit -n, LimitNOFILE) or lower --max-connections");
  return std::min(wanted, connections_within(files, reserved));
}

/// end_waiting ends a waiting connection, which the roster has chosen, in favour of a new client. Returns false for
/// null.
bool end_waiting(const std::shared_ptr<Connection> &connection, bool at_once) {
  if (connection) connection->make_way(at_once);
  return connection != nullptr;
}

}  // namespace

Admission::Admission(const Settings &settings, const Proxies &proxies, Roster &roster, ErrorLog &errors)
    : limits_(settings.limits),
      proxies_(proxies),
      roster_(roster),
      errors_(errors),
      client_limit_(limit_clients(settings, errors)),
      address_limit_(limits_.connections_per_address.value_or(std::max(limits_.connections / 2, least_address_limit))),
      address_rate_(limits_.rate_per_address) {}

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
