// SPDX-License-Identifier: MIT
/// The open connections by client, and those that may make way for a new one: they wait for a request or read its head.
///
/// Connections of the client with the most connections make way first; of one client, or of clients with equally many,
/// the one that has waited longest. Procedures take constant time, or time logarithmic in the number of clients; `all`
/// takes linear time. All may be called from any thread.
#ifndef HOSTS_RDMD_FRONT_ROSTER_H
#define HOSTS_RDMD_FRONT_ROSTER_H

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <boost/intrusive/list.hpp>
#include <boost/intrusive/set.hpp>

#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

class Connection;

/// ConnectionState is the state of a connection; doc/architecture.md shows the transitions.
enum class ConnectionState { handshake, idle, head, body, service, sending, lingering, closed, count };
using ConnectionCounts = std::array<std::size_t, static_cast<std::size_t>(ConnectionState::count)>;

class Roster {
  struct Group;

 public:
  /// Entry links a connection into the roster; it is a member of the connection. Its owner calls remove before
  /// destroying it.
  struct Entry {
    boost::intrusive::list_member_hook<> alive_hook, waiting_hook;
    std::weak_ptr<Connection> connection;
    Group *group = nullptr;
    io::Clock::time_point waiting_since;
    bool turned_away = false;
    const std::atomic<ConnectionState> *state = nullptr;  // of the connection, which has the entry as a member
  };

  /// Counts holds the numbers of connections that are served, and of those beyond a limit that are turned away.
  struct Counts {
    std::size_t served = 0, turned_away = 0;
  };

  /// admit adds a connection of the client `key`, which is served or turned away.
  void admit(Entry &entry, const std::shared_ptr<Connection> &connection, const ClientKey &key, bool turned_away);
  /// assign makes an admitted connection one of the client `key`, because a proxy has named its client.
  void assign(Entry &entry, const ClientKey &key);
  /// turn_away counts an admitted connection among those turned away.
  void turn_away(Entry &entry);
  /// remove removes a connection. It does nothing if the connection was never admitted.
  void remove(Entry &entry);

  /// set_waiting notes that an admitted connection may make way; it has waited for its client since `since`.
  void set_waiting(Entry &entry, io::Clock::time_point since);
  /// set_busy notes that a connection may not make way.
  void set_busy(Entry &entry);
  /// take_waiting returns the connection that makes way first and marks it busy, or null if none may.
  std::shared_ptr<Connection> take_waiting();
  /// take_waiting does the same among the connections of one client.
  std::shared_ptr<Connection> take_waiting(const ClientKey &key);

  Counts counts() const;
  Counts counts(const ClientKey &key) const;
  bool empty() const;
  /// count_states returns the number of connections in each state. It takes time in proportion to their number.
  ConnectionCounts count_states() const;
  /// all returns all connections.
  std::vector<std::shared_ptr<Connection>> all() const;

 private:
  template <auto hook>
  using List =
      boost::intrusive::list<Entry, boost::intrusive::member_hook<Entry, boost::intrusive::list_member_hook<>, hook>>;

  /// Group is the connections of one client. It exists while the client has any.
  struct Group {
    ClientKey key;
    Counts counts;
    List<&Entry::waiting_hook> waiting;  // in order of time
    boost::intrusive::set_member_hook<> order_hook;

    /// operator< orders groups by whose connections make way first.
    bool operator<(const Group &other) const;
  };
  using Order = boost::intrusive::multiset<
      Group, boost::intrusive::member_hook<Group, boost::intrusive::set_member_hook<>, &Group::order_hook>>;

  class Change;

  void join(Entry &entry, Group &group);
  void leave(Entry &entry);
  std::shared_ptr<Connection> take_from(Group &group);

  mutable std::mutex mutex_;
  List<&Entry::alive_hook> alive_;
  std::unordered_map<ClientKey, Group> groups_;
  Order order_;  // groups with waiting connections
  Counts counts_;
};

}  // namespace rdm::rdmd

#endif
