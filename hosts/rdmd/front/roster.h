// SPDX-License-Identifier: MIT
/// The open connections, and a list of the idle ones in the order in which they became idle.
///
/// All procedures but `all` take constant time. All may be called from any thread.
#ifndef HOSTS_RDMD_FRONT_ROSTER_H
#define HOSTS_RDMD_FRONT_ROSTER_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <boost/intrusive/list.hpp>

#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

class Connection;

class Roster {
 public:
  /// Entry links a connection into the roster; it is a member of the connection. Its owner calls remove before
  /// destroying it.
  struct Entry {
    boost::intrusive::list_member_hook<> alive_hook, idle_hook;
    std::weak_ptr<Connection> connection;
    io::Clock::time_point idle_since;
    bool turned_away = false;
  };

  /// admit adds a connection: one that is served, or one beyond the limit that is turned away.
  void admit(Entry &entry, const std::shared_ptr<Connection> &connection, bool turned_away);
  /// remove removes a connection. It does nothing if the connection was never admitted.
  void remove(Entry &entry);

  /// set_idle notes that an admitted connection has been waiting for a request since `since`, a recent time.
  void set_idle(Entry &entry, io::Clock::time_point since);
  /// set_busy notes that a connection is not waiting for a request.
  void set_busy(Entry &entry);
  /// take_longest_idle returns the connection that has been idle longest and marks it busy, or null if none is idle.
  std::shared_ptr<Connection> take_longest_idle();

  /// served and turned_away count the admitted connections of each kind.
  std::size_t served() const;
  std::size_t turned_away() const;
  bool empty() const;
  /// all returns all connections.
  std::vector<std::shared_ptr<Connection>> all() const;

 private:
  template <auto hook>
  using List =
      boost::intrusive::list<Entry, boost::intrusive::member_hook<Entry, boost::intrusive::list_member_hook<>, hook>>;

  mutable std::mutex mutex_;
  List<&Entry::alive_hook> alive_;
  List<&Entry::idle_hook> idle_;
  std::size_t turned_away_ = 0;
};

}  // namespace rdm::rdmd

#endif
