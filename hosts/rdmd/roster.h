// SPDX-License-Identifier: MIT
/// The connections that are alive, and those among them that wait for a request, in the order in which they began to.
///
/// No procedure but all takes longer when there are more connections. All may be called from any thread.
#ifndef HOSTS_RDMD_ROSTER_H
#define HOSTS_RDMD_ROSTER_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <boost/intrusive/list.hpp>

#include "hosts/rdmd/io.h"

namespace rdm::rdmd {

class Connection;

class Roster {
 public:
  /// Place is the part of a connection that links it into the roster. Its owner removes it before it ends.
  struct Place {
    boost::intrusive::list_member_hook<> alive_hook, idle_hook;
    std::weak_ptr<Connection> connection;
    io::Clock::time_point idle_since;
    bool turned_away = false;
  };

  /// admit takes a connection in: as one that is served, or as one beyond the limit that is turned away.
  void admit(Place &place, const std::shared_ptr<Connection> &connection, bool turned_away);
  /// remove takes a connection out. One that was never admitted may be removed too.
  void remove(Place &place);

  /// set_idle notes that an admitted connection has waited for a request since `since`, which is not long ago.
  void set_idle(Place &place, io::Clock::time_point since);
  /// set_busy notes that a connection does not wait for a request.
  void set_busy(Place &place);
  /// take_longest_idle returns the connection that has waited longest and notes it as busy; null when none waits.
  std::shared_ptr<Connection> take_longest_idle();

  /// served and turned_away count the connections admitted as the one or the other.
  std::size_t served() const;
  std::size_t turned_away() const;
  bool empty() const;
  /// all returns every connection.
  std::vector<std::shared_ptr<Connection>> all() const;

 private:
  template <auto hook>
  using List =
      boost::intrusive::list<Place, boost::intrusive::member_hook<Place, boost::intrusive::list_member_hook<>, hook>>;

  mutable std::mutex mutex_;
  List<&Place::alive_hook> alive_;
  List<&Place::idle_hook> idle_;
  std::size_t turned_away_ = 0;
};

}  // namespace rdm::rdmd

#endif
