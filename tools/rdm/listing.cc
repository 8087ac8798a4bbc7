// SPDX-License-Identifier: MIT
#include "tools/rdm/listing.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "catalog/change_times.h"

namespace rdm::client {
namespace {

Listing list(Server &server, time_t since) {
  Answer answer = server.ask({"rd-request", server.csid(), Query{since, {"rd-last-changed"}}});
  Listing listing;
  listing.is_all = since == 0;
  listing.date = answer.reply().date;
  listing.entries.reserve(static_cast<size_t>(answer.objects()));
  answer.each([&](const catalog::ObjectView &object, const std::string &) {
    listing.entries.push_back({digest_of(object.url()), catalog::valid_change_time(object)});
  });
  return listing;
}

/// earliest returns the earliest time of the entries from a position on.
time_t earliest(const Listing &listing, size_t from) {
  const auto precedes = [](const Listing::Entry &a, const Listing::Entry &b) { return a.time < b.time; };
  const auto begin = listing.entries.begin() + static_cast<std::ptrdiff_t>(from);
  return std::min_element(begin, listing.entries.end(), precedes)->time;
}

Query query_since(time_t since) { return {std::max<time_t>(since, 0), {}}; }

}  // namespace

Listing list_all(Server &server) { return list(server, 0); }

Listing list_since(Server &server, time_t since) {
  constexpr time_t hour = 3600, day = 24 * hour;
  for (const time_t earlier : {overlap, hour, day, 30 * day}) {
    if (since <= earlier) break;
    Listing listing = list(server, since - earlier);
    if (!listing.entries.empty()) return listing;
  }
  return list_all(server);
}

time_t settled_time(const Listing &listing, double longest_delivery) {
  const time_t lag = overlap + static_cast<time_t>(std::ceil(longest_delivery));
  // A server may tell no date, and a description may be dated ahead: later changes would then seem to be settled.
  return std::min(listing.newest(), listing.date.value_or(std::time(nullptr)) - lag);
}

Query narrow_query(const Listing &listing, size_t first) {
  const size_t count = listing.entries.size();
  if (count < 2) return {};
  // The last entry alone is found only from the time of the one before it.
  return query_since(first + 1 < count ? earliest(listing, first) - 1 : earliest(listing, count - 2));
}

Query wide_query(const Listing &listing, size_t first) {
  constexpr size_t more = 64;
  if (first < more) return {};
  return query_since(earliest(listing, first - more) - 1);
}

void limit_query(Query &query, const Listing &listing, size_t last) {
  const auto may_come = [&](const Listing::Entry &entry) { return query.since == 0 || entry.time >= query.since; };
  const auto begin = listing.entries.begin();
  const auto first = std::find_if(begin, listing.entries.end(), may_come);
  query.hits = std::max<int64_t>(begin + static_cast<std::ptrdiff_t>(last) - first + 1, 1);
}

}  // namespace rdm::client
