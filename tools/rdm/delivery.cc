// SPDX-License-Identifier: MIT
#include "tools/rdm/delivery.h"

#include <algorithm>
#include <deque>
#include <optional>

#include "catalog/change_times.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

using catalog::ObjectView;

/// Delivery is an answer that may come in several parts.
class Delivery {
 public:
  Delivery(Server &server, const Query &query, Received &received)
      : server_(server), query_(query), received_(received) {}

  void run() {
    for (Patience patience = server_.patience();;) {
      Answer answer = server_.attempt({"rd-request", server_.csid(), next_query()});
      std::string fault = answer.fault();
      if (fault.empty() || answer.is_cut()) {
        const bool is_joined = joins(answer);
        if (is_joined && take(answer)) patience.reset();
        if (is_joined && fault.empty()) return;
        if (fault.empty()) {
          fault = "the rest of a cut answer does not follow what was kept";
          forget();
        }
      }
      server_.retry(patience, answer, fault);
    }
  }

 private:
  /// anchors is the number of descriptions before the cut that the rest repeats. Times of all of them count, since some
  /// may have a text that is newer than the index by which the server sorts.
  static constexpr size_t anchors = 16;

  bool can_resume() const { return query_.hits == 0 && is_sorted_ && times_.size() == anchors; }

  /// next_query asks for the rest, or for everything.
  Query next_query() const {
    Query query = query_;
    if (can_resume()) query.since = std::max(query.since, *std::min_element(times_.begin(), times_.end()) - 1);
    return query;
  }

  /// joins returns true if an answer contains the last description that was kept, or if nothing was kept.
  bool joins(Answer &answer) const {
    if (!can_resume()) return true;
    bool found = false;
    answer.each([&](const ObjectView &object, const std::string &text) {
      found = found || (digest_of(object.url()) == last_key_ && digest_of(text) == last_content_);
    });
    return found;
  }

  /// take adds the descriptions of an answer. Returns true if one of them is new.
  bool take(Answer &answer) {
    bool is_new = false;
    answer.each([&](const ObjectView &object, const std::string &text) {
      if (!received_.add(object, text)) return;
      is_new = true;
      const time_t time = catalog::valid_change_time(object);
      is_sorted_ = is_sorted_ && time > 0 && (times_.empty() || times_.back() <= time);
      times_.push_back(time);
      if (times_.size() > anchors) times_.pop_front();
      last_key_ = digest_of(object.url());
      last_content_ = digest_of(text);
    });
    return is_new;
  }

  void forget() {
    times_.clear();
    is_sorted_ = true;
  }

  Server &server_;
  const Query &query_;
  Received &received_;
  std::deque<time_t> times_;  // of the last descriptions that were kept
  bool is_sorted_ = true;
  Digest last_key_{}, last_content_{};
};

}  // namespace

void receive(Server &server, const Query &query, Received &received) { Delivery(server, query, received).run(); }

bool is_received(const Listing::Entry &entry, const Received &received) {
  const Received::Entry *found = received.find(entry.key);
  return found != nullptr && found->time >= entry.time;
}

void receive_listed(Server &server, const Listing &listing, const Wish &wish, Received &received) {
  const std::vector<size_t> &positions = wish.positions;
  const auto is_done = [&](size_t position) { return is_received(listing.entries[position], received); };
  if (positions.empty()) return;
  Query narrow = narrow_query(listing, positions.front());
  if (wish.is_limited) limit_query(narrow, listing, positions.back());
  for (Query query : {narrow, wide_query(listing, positions.front()), Query()}) {
    query.attributes = wish.attributes;
    receive(server, query, received);
    if (std::all_of(positions.begin(), positions.end(), is_done)) return;
    if (query.since == 0 && query.hits == 0) return;
  }
}

}  // namespace rdm::client
