// SPDX-License-Identifier: MIT
#include "tools/rdm/mirror.h"

#include <algorithm>
#include <unordered_set>

#include "qxapi/counted.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

/// most_rounds is how often a run compares the whole list while the catalog changes.
constexpr int most_rounds = 8;

}  // namespace

Mirror::Mirror(const Options &options, const Console &console, Server &server, Target &target, State &state)
    : options_(options),
      console_(console),
      server_(server),
      target_(target),
      state_(state),
      received_(scratch_place()) {}

void Mirror::read_target() {
  target_.each([this](const Digest &key, time_t time) {
    times_[key] = time;
    held_before_.push_back(key);
  });
}

/// mark returns a digest of what is held. It does not depend on the order.
Digest Mirror::mark() const {
  Digest sum{};
  for (const auto &[key, time] : times_) {
    const Digest one = digest_of(hex_of(key) + std::to_string(time));
    for (size_t i = 0; i < sum.size(); ++i) sum[i] = static_cast<unsigned char>(sum[i] ^ one[i]);
  }
  return sum;
}

bool Mirror::must_be_full() const {
  const time_t age = console_.clock() - state_.compared;
  return state_.is_new() || state_.mark != mark() || age < 0 || static_cast<double>(age) >= options_.full_every;
}

/// list asks for the whole list or for the latest changes. An answer to the latter may turn out to be the whole list.
Listing Mirror::list() {
  Listing listing = is_full_ ? list_all(server_) : list_since(server_, state_.settled);
  is_full_ = is_full_ || listing.is_all;
  if (is_full_) require_plausible(listing);
  return listing;
}

void Mirror::require_plausible(const Listing &listing) const {
  if (options_.believe) return;
  std::unordered_set<Digest, DigestHash> listed;
  for (const Listing::Entry &entry : listing.entries) listed.insert(entry.key);
  size_t present = 0;
  const size_t held = held_before_.size();
  for (const Digest &key : held_before_) present += listed.count(key);
  if (2 * present < held)
    throw Distrust("the server lists only " + std::to_string(present) + " of the " + counted(held, "description") +
                   " held in " + options_.target +
                   ": nothing is changed; if the others are gone indeed, say --believe");
}

bool Mirror::is_wanted(const Listing::Entry &entry) const {
  const auto held = times_.find(entry.key);
  if (held == times_.end() || held->second != entry.time) return true;
  // Another change may have the same time. Once in a run is enough.
  const bool is_certain = entry.time != 0 && entry.time <= state_.settled;
  return !is_certain && received_.find(entry.key) == nullptr;
}

/// wish_of selects what is wanted. Of a URL that is listed twice, the last entry counts.
Wish Mirror::wish_of(const Listing &listing) const {
  std::unordered_map<Digest, size_t, DigestHash> last;
  for (size_t i = 0; i < listing.entries.size(); ++i) last[listing.entries[i].key] = i;
  Wish wish;
  for (const auto &[key, position] : last)
    if (is_wanted(listing.entries[position])) wish.positions.push_back(position);
  std::sort(wish.positions.begin(), wish.positions.end());
  return wish;
}

/// fetch lists and receives until nothing is wanted, and returns the last listing. After a listing of the latest
/// changes alone, one round is enough.
Listing Mirror::fetch() {
  for (int round = 1;; ++round) {
    Listing listing = list();
    const Wish wish = wish_of(listing);
    is_settled_ = wish.positions.empty();
    if (is_settled_ || round == most_rounds) return listing;
    receive_listed(server_, listing, wish, received_);
    received_.each([this](const Received::Entry &entry) { times_[entry.key] = entry.time; });
    is_settled_ = !is_full_;
    if (is_settled_) return listing;
  }
}

Target::Digests Mirror::gone_from(const Listing &listing) const {
  Target::Digests gone;
  if (!is_full_) return gone;
  for (const auto &[key, time] : times_) gone.insert(key);
  for (const Listing::Entry &entry : listing.entries) gone.erase(entry.key);
  return gone;
}

void Mirror::finish(const Listing &listing, const Target::Digests &gone) {
  for (const Digest &key : gone) times_.erase(key);
  times_.erase(digest_of("-"));  // no target keeps it
  state_.mark = mark();
  state_.settled = std::max<time_t>(settled_time(listing, server_.longest_delivery()), 0);
  if (is_full_) state_.compared = is_settled_ ? console_.clock() : 0;
  state_.save();
}

Changes Mirror::run() {
  read_target();
  is_full_ = must_be_full();
  const Listing listing = fetch();
  const Target::Digests gone = gone_from(listing);
  Changes changes = target_.apply(received_, gone);
  finish(listing, gone);
  return changes;
}

}  // namespace rdm::client
