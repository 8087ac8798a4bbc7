// SPDX-License-Identifier: MIT
/// What a catalog holds: the URLs and times of change of its descriptions, without their contents.
///
/// A server sorts an answer by the time of change that its index holds, and begins it at the first entry of a time,
/// which it finds by bisection: at any of the entries of exactly that time, otherwise at the first later one. A search
/// that leads to the last entry finds nothing, so that an empty answer to a since query proves nothing. A text may be
/// newer than its index entry, never older.
#ifndef TOOLS_RDM_LISTING_H
#define TOOLS_RDM_LISTING_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <vector>

#include "tools/rdm/digest.h"
#include "tools/rdm/message.h"
#include "tools/rdm/server.h"

namespace rdm::client {

struct Listing {
  struct Entry {
    Digest key;   // digest of the URL
    time_t time;  // of the last change; 0 if the description has none
  };
  std::vector<Entry> entries;  // in the order of the answer
  bool is_all = false;         // of the whole catalog, not only of changes
  std::optional<time_t> date;  // of the answer, by the server's clock

  /// newest returns a time up to which all changes that the server's index held are listed: that of the last entry. An
  /// entry before it may have a newer text.
  time_t newest() const { return entries.empty() ? 0 : entries.back().time; }
};

/// list_all returns the whole catalog, list_since at least all changes after `since`, in seconds since 1970. It asks
/// since earlier times, until an answer is not empty.
Listing list_all(Server &server);
Listing list_since(Server &server, time_t since);

/// settled_time returns a time after which entries must be fetched again, whatever their times say: within a second
/// that has not passed long ago by the server's clock, a description may change again and keep its time.
time_t settled_time(const Listing &listing, double longest_delivery);

/// overlap is the usual distance in seconds between a known time and the time that is asked from: the index of a server
/// may have been made some time after its texts.
constexpr time_t overlap = 300;

/// narrow_query returns the query for the listed entries from position `first` on, with as few others as the server's
/// search allows. It misses entries whose text is newer than the index; wide_query misses them more seldom.
Query narrow_query(const Listing &listing, size_t first);
Query wide_query(const Listing &listing, size_t first);
/// limit_query limits a query to the entries up to position `last`.
void limit_query(Query &query, const Listing &listing, size_t last);

}  // namespace rdm::client

#endif
