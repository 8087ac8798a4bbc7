// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/roster.h"

#include <iterator>
#include <utility>

namespace rdm::rdmd {
namespace {

std::size_t &of_kind(Roster::Counts &counts, bool turned_away) {
  return turned_away ? counts.turned_away : counts.served;
}

}  // namespace

bool Roster::Group::operator<(const Group &other) const {
  if (counts.served != other.counts.served) return counts.served > other.counts.served;
  return waiting.front().waiting_since < other.waiting.front().waiting_since;
}

/// Change takes a group out of the order while its counts and waiting connections change, and inserts it again.
class Roster::Change {
 public:
  Change(Order &order, Group &group) : order_(order), group_(group) {
    if (group.order_hook.is_linked()) order.erase(order.iterator_to(group));
  }
  Change(const Change &) = delete;
  Change &operator=(const Change &) = delete;
  ~Change() {
    if (!group_.waiting.empty()) order_.insert(group_);
  }

 private:
  Order &order_;
  Group &group_;
};

void Roster::join(Entry &entry, Group &group) {
  const Change change(order_, group);
  entry.group = &group;
  ++of_kind(group.counts, entry.turned_away);
}

void Roster::leave(Entry &entry) {
  Group &group = *entry.group;
  {
    const Change change(order_, group);
    if (entry.waiting_hook.is_linked()) group.waiting.erase(group.waiting.iterator_to(entry));
    --of_kind(group.counts, entry.turned_away);
  }
  if (group.counts.served + group.counts.turned_away == 0) groups_.erase(groups_.find(group.key));
}

void Roster::admit(Entry &entry, const std::shared_ptr<Connection> &connection, const ClientKey &key,
                   bool turned_away) {
  const std::lock_guard lock(mutex_);
  Group &group = groups_[key];
  group.key = key;
  entry.connection = connection;
  entry.turned_away = turned_away;
  alive_.push_back(entry);
  ++of_kind(counts_, turned_away);
  join(entry, group);
}

void Roster::assign(Entry &entry, const ClientKey &key) {
  const std::lock_guard lock(mutex_);
  if (entry.group == nullptr || entry.group->key == key) return;
  Group &group = groups_[key];
  group.key = key;
  leave(entry);
  join(entry, group);
}

void Roster::turn_away(Entry &entry) {
  const std::lock_guard lock(mutex_);
  if (entry.group == nullptr || entry.turned_away) return;
  const Change change(order_, *entry.group);
  for (Counts *counts : {&counts_, &entry.group->counts}) {
    --counts->served;
    ++counts->turned_away;
  }
  entry.turned_away = true;
}

void Roster::remove(Entry &entry) {
  const std::lock_guard lock(mutex_);
  if (entry.group == nullptr) return;
  leave(entry);
  entry.group = nullptr;
  alive_.erase(alive_.iterator_to(entry));
  --of_kind(counts_, entry.turned_away);
}

void Roster::set_waiting(Entry &entry, io::Clock::time_point since) {
  const std::lock_guard lock(mutex_);
  if (entry.group == nullptr || entry.waiting_hook.is_linked()) return;
  entry.waiting_since = since;
  auto &waiting = entry.group->waiting;
  // Insert in order of time. Only entries that other threads added after `since` was read are passed over.
  auto next = waiting.end();
  while (next != waiting.begin() && std::prev(next)->waiting_since > since) --next;
  if (next != waiting.begin()) {
    waiting.insert(next, entry);
    return;
  }
  const Change change(order_, *entry.group);
  waiting.insert(next, entry);
}

void Roster::set_busy(Entry &entry) {
  const std::lock_guard lock(mutex_);
  if (!entry.waiting_hook.is_linked()) return;
  auto &waiting = entry.group->waiting;
  if (&waiting.front() != &entry) {
    waiting.erase(waiting.iterator_to(entry));
    return;
  }
  const Change change(order_, *entry.group);
  waiting.pop_front();
}

/// take_from takes the longest waiting connection that still exists out of a group.
std::shared_ptr<Connection> Roster::take_from(Group &group) {
  const Change change(order_, group);
  while (!group.waiting.empty()) {
    std::shared_ptr<Connection> longest = group.waiting.front().connection.lock();
    group.waiting.pop_front();
    if (longest) return longest;
  }
  return nullptr;
}

std::shared_ptr<Connection> Roster::take_waiting() {
  const std::lock_guard lock(mutex_);
  while (!order_.empty())
    if (std::shared_ptr<Connection> longest = take_from(*order_.begin())) return longest;
  return nullptr;
}

std::shared_ptr<Connection> Roster::take_waiting(const ClientKey &key) {
  const std::lock_guard lock(mutex_);
  const auto found = groups_.find(key);
  return found == groups_.end() ? nullptr : take_from(found->second);
}

Roster::Counts Roster::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

Roster::Counts Roster::counts(const ClientKey &key) const {
  const std::lock_guard lock(mutex_);
  const auto found = groups_.find(key);
  return found == groups_.end() ? Counts{} : found->second.counts;
}

bool Roster::empty() const {
  const std::lock_guard lock(mutex_);
  return alive_.empty();
}

ConnectionCounts Roster::count_states() const {
  ConnectionCounts counts{};
  const std::lock_guard lock(mutex_);
  for (const Entry &entry : alive_) ++counts[static_cast<std::size_t>(entry.state->load(std::memory_order_relaxed))];
  return counts;
}

std::vector<std::shared_ptr<Connection>> Roster::all() const {
  std::vector<std::shared_ptr<Connection>> result;
  const std::lock_guard lock(mutex_);
  // Reserve before holding any connection: if this threw, releasing the last reference would call remove, which needs
  // the lock.
  result.reserve(alive_.size());
  for (const Entry &entry : alive_)
    if (auto connection = entry.connection.lock()) result.push_back(std::move(connection));
  return result;
}

}  // namespace rdm::rdmd
