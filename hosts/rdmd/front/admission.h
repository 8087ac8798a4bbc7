// SPDX-License-Identifier: MIT
/// Decides which clients are served: the limits on connections, in all and of each address, and who makes way for whom.
#ifndef HOSTS_RDMD_FRONT_ADMISSION_H
#define HOSTS_RDMD_FRONT_ADMISSION_H

#include <cstddef>
#include <optional>
#include <string>

#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/connection_rate.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/proxies.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Admission {
 public:
  /// Raises the limit of open files, and warns if it is too low for the connections wanted. All arguments outlive the
  /// admission.
  Admission(const Settings &settings, const Proxies &proxies, Roster &roster, ErrorLog &errors);

  /* ---- When a client is accepted, on one strand ---- */

  /// find_refusal returns the limit that keeps a new client from being served, or std::nullopt. At a limit on
  /// connections, a waiting connection first makes way.
  std::optional<Trouble> find_refusal(const Client &client);
  /// relieve ends a waiting connection because of a shortage, which it logs at most once a minute. Returns false if
  /// none waits.
  bool relieve(const std::string &shortage);

  /* ---- For connections, from any thread ---- */

  /// may_turn_away returns true if a client beyond a limit gets an answer. The limits of an address leave room for
  /// others that are turned away.
  bool may_turn_away(const ClientKey &key, Trouble reason) const;
  /// turn_away counts an admitted connection among those of the client `key` that are turned away for `reason`. Returns
  /// false if there are too many of them already.
  bool turn_away(Roster::Entry &entry, const ClientKey &key, Trouble reason);
  /// assign makes an admitted connection one of `client`, whom a trusted proxy has named. Returns the limit of the
  /// client's address that is exceeded, if one is; the connection then stays the proxy's.
  std::optional<Trouble> assign(Roster::Entry &entry, const Client &client);

 private:
  std::optional<Trouble> find_address_refusal(const Client &client);
  bool make_room_for(const ClientKey &key);
  bool make_room();
  void note_shortage(const std::string &shortage);

  const Limits &limits_;
  const Proxies &proxies_;
  Roster &roster_;
  ErrorLog &errors_;
  const std::size_t client_limit_;
  const std::size_t address_limit_;  // connections of one address; 0: no limit
  ConnectionRate address_rate_;
  io::Clock::time_point next_shortage_line_;  // the earliest time of the next log line about a shortage
};

}  // namespace rdm::rdmd

#endif
