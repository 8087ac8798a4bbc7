// SPDX-License-Identifier: MIT
#include "tools/rdm/harvest.h"

#include <algorithm>

#include "catalog/object_view.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

constexpr char time_of_change[] = "rd-last-changed";

bool lists_all(const Listing &listing, const std::vector<Listing::Entry> &entries) {
  std::unordered_set<Digest, DigestHash> keys;
  for (const Listing::Entry &entry : listing.entries) keys.insert(entry.key);
  return std::all_of(entries.begin(), entries.end(), [&](const auto &entry) { return keys.count(entry.key) != 0; });
}

time_t earliest(const std::vector<Listing::Entry> &entries) {
  const auto precedes = [](const auto &a, const auto &b) { return a.time < b.time; };
  return std::min_element(entries.begin(), entries.end(), precedes)->time;
}

}  // namespace

Harvest::Harvest(const Options &options, Server &server)
    : options_(options), server_(server), received_(scratch_place()), attributes_(options.attributes) {
  drops_time_ =
      !attributes_.empty() && std::find(attributes_.begin(), attributes_.end(), time_of_change) == attributes_.end();
  if (drops_time_) attributes_.emplace_back(time_of_change);
}

void Harvest::take_all() { receive(server_, {0, attributes_, options_.limit}, received_); }

void Harvest::take_since(time_t time) {
  const Listing listing = list_since(server_, time);
  const auto is_wanted = [&](const Listing::Entry &entry) { return entry.time >= time; };
  const Wish wish = wish_of(listing, is_wanted, is_wanted);
  receive_listed(server_, listing, wish, received_);
  drop_others(listing, wish, [&](const Received::Entry &entry) { return entry.time >= time; });
}

void Harvest::take_news(State &state) {
  const Listing listing = state.is_new() ? list_all(server_) : list_since(server_, state.settled);
  const time_t known = state.settled - overlap;
  const auto is_held = [&](const Listing::Entry &entry) {
    const auto held = state.held.find(entry.key);
    return held != state.held.end() && held->second.time == entry.time;
  };
  const auto is_missing = [&](const Listing::Entry &entry) {
    return (state.is_new() || entry.time >= known || entry.time == 0) && !is_held(entry);
  };
  const auto is_wanted = [&](const Listing::Entry &entry) {
    return is_missing(entry) || entry.time == 0 || entry.time > state.settled;
  };
  const auto is_news = [&](const Received::Entry &entry) {
    const auto held = state.held.find(entry.key);
    const bool is_same =
        held != state.held.end() && held->second.size == entry.size && held->second.content == entry.content;
    return !is_same && (state.is_new() || entry.time == 0 || entry.time >= known);
  };
  receive_listed(server_, listing, wish_of(listing, is_wanted, is_missing), received_);
  // What was not delivered does not use up the limit: after it, everything was asked for, and others have come.
  const auto has_come = [&](const Listing::Entry &entry) { return is_missing(entry) && is_received(entry, received_); };
  const Wish wish = wish_of(listing, is_wanted, has_come);
  drop_others(listing, wish, is_news);
  if (!listing.entries.empty()) remember(state, listing, wish, pending_of(listing, wish, is_wanted));
}

/// wish_of collects the wanted entries up to the limit, which only counted ones use up.
Wish Harvest::wish_of(const Listing &listing, const std::function<bool(const Listing::Entry &)> &is_wanted,
                      const std::function<bool(const Listing::Entry &)> &is_counted) const {
  Wish wish{{}, attributes_, false};
  int64_t counted = 0;
  for (size_t i = 0; i < listing.entries.size() && !wish.is_limited; ++i) {
    if (!is_wanted(listing.entries[i])) continue;
    wish.positions.push_back(i);
    counted += is_counted(listing.entries[i]) ? 1 : 0;
    wish.is_limited = options_.limit > 0 && counted >= options_.limit;
  }
  return wish;
}

/// drop_others drops what is no news and, with a limit, what is beyond it.
void Harvest::drop_others(const Listing &listing, const Wish &wish, const Predicate &is_news) {
  std::unordered_set<Digest, DigestHash> wanted;
  for (const size_t position : wish.positions) wanted.insert(listing.entries[position].key);
  received_.each([&](const Received::Entry &entry) {
    if (!is_news(entry) || (wish.is_limited && !wanted.contains(entry.key))) dropped_.insert(entry.key);
  });
}

/// pending_of returns the wanted entries that are still to come: beyond the limit, or listed but not delivered.
Harvest::Pending Harvest::pending_of(const Listing &listing, const Wish &wish,
                                     const std::function<bool(const Listing::Entry &)> &is_wanted) const {
  const size_t end = wish.is_limited ? wish.positions.back() + 1 : listing.entries.size();
  Pending pending;
  for (size_t i = 0; i < listing.entries.size(); ++i) {
    const Listing::Entry &entry = listing.entries[i];
    if (is_wanted(entry) && (i >= end || !is_received(entry, received_))) pending.push_back(entry);
  }
  return pending;
}

/// next_settled returns the time that the next harvest begins from. The server sorts by times that may be older than
/// those of the texts: with entries pending, a later time than before counts only if the server lists them all from it.
time_t Harvest::next_settled(const State &state, const Listing &listing, const Pending &pending) const {
  const time_t settled = std::max<time_t>(settled_time(listing, server_.longest_delivery()), 0);
  if (pending.empty()) return settled;
  const time_t next = std::min(settled, std::max(state.settled, earliest(pending)));
  const bool is_safe = next <= state.settled || lists_all(list_since(server_, next), pending);
  return is_safe ? next : state.settled;
}

/// remember keeps the entries that were delivered and that the next harvest will meet again.
void Harvest::remember(State &state, const Listing &listing, const Wish &wish, const Pending &pending) const {
  state.settled = next_settled(state, listing, pending);
  decltype(state.held) held;
  const auto keep = [&](const Digest &key, const Held &one) {
    if (one.time == 0 || one.time >= state.settled - overlap) held[key] = one;
  };
  for (const Listing::Entry &entry : listing.entries)
    if (const auto old = state.held.find(entry.key); old != state.held.end()) keep(old->first, old->second);
  received_.each([&](const Received::Entry &entry) {
    if (!wish.is_limited || !dropped_.contains(entry.key)) keep(entry.key, {entry.time, entry.size, entry.content});
  });
  state.held = std::move(held);
}

std::string Harvest::printed(const Received::Entry &entry) const {
  std::string text = received_.text(entry);
  if (!drops_time_) return text + "\n";
  auto object = catalog::ObjectView::read(text);
  if (!object) throw Failure("the scratch file of the descriptions has changed");
  object->erase(time_of_change);
  return object->print();
}

void Harvest::each(const std::function<void(const std::string &text)> &visit) const {
  received_.each([&](const Received::Entry &entry) {
    if (!dropped_.contains(entry.key)) visit(printed(entry));
  });
}

}  // namespace rdm::client
