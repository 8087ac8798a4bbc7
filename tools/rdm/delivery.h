// SPDX-License-Identifier: MIT
/// Receiving descriptions.
#ifndef TOOLS_RDM_DELIVERY_H
#define TOOLS_RDM_DELIVERY_H

#include <string>
#include <vector>

#include "tools/rdm/listing.h"
#include "tools/rdm/message.h"
#include "tools/rdm/received.h"
#include "tools/rdm/server.h"

namespace rdm::client {

/// receive asks for descriptions and adds them to `received`. Of an answer that was cut it keeps the descriptions that
/// have arrived whole, and asks for the rest from the newest time that it holds. The rest is accepted if it contains
/// the last description that was kept; otherwise everything is asked for once more. Throws as Server::ask does.
void receive(Server &server, const Query &query, Received &received);

/// Wish selects entries of a listing.
struct Wish {
  std::vector<size_t> positions;        // in the listing, ascending
  std::vector<std::string> attributes;  // empty for all
  bool is_limited = false;              // nothing after the last position is wanted
};
/// receive_listed receives the descriptions of a wish in the versions that were listed or newer ones, and with them
/// perhaps others. It asks in three ways, from cheap to sure. Those that are not received afterwards were not
/// delivered.
void receive_listed(Server &server, const Listing &listing, const Wish &wish, Received &received);
/// is_received returns true if `received` has an entry, or a newer version of it.
bool is_received(const Listing::Entry &entry, const Received &received);

}  // namespace rdm::client

#endif
