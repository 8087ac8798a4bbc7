// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/roster.h"

#include <iterator>
#include <utility>

#include "hosts/rdmd/front/connection.h"

namespace rdm::rdmd {

void Roster::admit(Entry &entry, const std::shared_ptr<Connection> &connection, bool turned_away) {
  const std::lock_guard lock(mutex_);
  entry.connection = connection;
  entry.turned_away = turned_away;
  alive_.push_back(entry);
  turned_away_ += turned_away ? 1 : 0;
}

void Roster::remove(Entry &entry) {
  const std::lock_guard lock(mutex_);
  if (entry.idle_hook.is_linked()) idle_.erase(idle_.iterator_to(entry));
  if (!entry.alive_hook.is_linked()) return;
  alive_.erase(alive_.iterator_to(entry));
  turned_away_ -= entry.turned_away ? 1 : 0;
}

void Roster::set_idle(Entry &entry, io::Clock::time_point since) {
  const std::lock_guard lock(mutex_);
  if (!entry.alive_hook.is_linked() || entry.idle_hook.is_linked()) return;
  entry.idle_since = since;
  // Insert in order of time. Only entries that other threads added after `since` was read are passed over.
  auto next = idle_.end();
  while (next != idle_.begin() && std::prev(next)->idle_since > since) --next;
  idle_.insert(next, entry);
}

void Roster::set_busy(Entry &entry) {
  const std::lock_guard lock(mutex_);
  if (entry.idle_hook.is_linked()) idle_.erase(idle_.iterator_to(entry));
}

std::shared_ptr<Connection> Roster::take_longest_idle() {
  const std::lock_guard lock(mutex_);
  while (!idle_.empty()) {
    std::shared_ptr<Connection> longest = idle_.front().connection.lock();
    idle_.pop_front();
    if (longest) return longest;
  }
  return nullptr;
}

std::size_t Roster::served() const {
  const std::lock_guard lock(mutex_);
  return alive_.size() - turned_away_;
}

std::size_t Roster::turned_away() const {
  const std::lock_guard lock(mutex_);
  return turned_away_;
}

bool Roster::empty() const {
  const std::lock_guard lock(mutex_);
  return alive_.empty();
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
