// SPDX-License-Identifier: MIT
/// Which descriptions a harvest takes, and what it remembers for the next one.
#ifndef TOOLS_RDM_HARVEST_H
#define TOOLS_RDM_HARVEST_H

#include <functional>
#include <unordered_set>

#include "tools/rdm/delivery.h"
#include "tools/rdm/listing.h"
#include "tools/rdm/state.h"

namespace rdm::client {

/// Harvest receives descriptions and says which of them are news.
class Harvest {
 public:
  /// Options and server must outlive the harvest.
  Harvest(const Options &options, Server &server);

  /// take_all receives everything or, with a limit, what the server sends first.
  void take_all();
  /// take_since receives what has changed at a time, in seconds since 1970, or later.
  void take_since(time_t time);
  /// take_news receives what the state does not have, and updates the state, which the caller saves afterwards.
  void take_news(State &state);

  /// is_empty returns true if nothing was received.
  bool is_empty() const { return received_.size() == 0; }
  /// each visits the descriptions that were asked for, in the order of the server.
  void each(const std::function<void(const std::string &text)> &visit) const;

 private:
  using Predicate = std::function<bool(const Received::Entry &entry)>;
  using Pending = std::vector<Listing::Entry>;
  Pending pending_of(const Listing &listing, const Wish &wish,
                     const std::function<bool(const Listing::Entry &)> &is_wanted) const;
  Wish wish_of(const Listing &listing, const std::function<bool(const Listing::Entry &)> &is_wanted,
               const std::function<bool(const Listing::Entry &)> &is_counted) const;
  void drop_others(const Listing &listing, const Wish &wish, const Predicate &is_news);
  void remember(State &state, const Listing &listing, const Wish &wish, const Pending &pending) const;
  time_t next_settled(const State &state, const Listing &listing, const Pending &pending) const;
  std::string printed(const Received::Entry &entry) const;

  const Options &options_;
  Server &server_;
  Received received_;
  std::vector<std::string> attributes_;  // to ask for
  bool drops_time_ = false;              // the time of change is asked for, but not wanted
  std::unordered_set<Digest, DigestHash> dropped_;
};

}  // namespace rdm::client

#endif
