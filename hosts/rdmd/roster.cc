// SPDX-License-Identifier: MIT
#include "hosts/rdmd/roster.h"

#include <iterator>
#include <utility>

#include "hosts/rdmd/connection.h"

namespace rdm::rdmd {

void Roster::admit(Place &place, const std::shared_ptr<Connection> &connection, bool turned_away) {
  const std::lock_guard lock(mutex_);
  place.connection = connection;
  place.turned_away = turned_away;
  alive_.push_back(place);
  turned_away_ += turned_away ? 1 : 0;
}

void Roster::remove(Place &place) {
  const std::lock_guard lock(mutex_);
  if (place.idle_hook.is_linked()) idle_.erase(idle_.iterator_to(place));
  if (!place.alive_hook.is_linked()) return;
  alive_.erase(alive_.iterator_to(place));
  turned_away_ -= place.turned_away ? 1 : 0;
}

void Roster::set_idle(Place &place, io::Clock::time_point since) {
  const std::lock_guard lock(mutex_);
  if (!place.alive_hook.is_linked() || place.idle_hook.is_linked()) return;
  place.idle_since = since;
  // Insert in order of time. Only entries that other threads added after `since` was read are passed over.
  auto next = idle_.end();
  while (next != idle_.begin() && std::prev(next)->idle_since > since) --next;
  idle_.insert(next, place);
}

void Roster::set_busy(Place &place) {
  const std::lock_guard lock(mutex_);
  if (place.idle_hook.is_linked()) idle_.erase(idle_.iterator_to(place));
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
  for (const Place &place : alive_)
    if (auto connection = place.connection.lock()) result.push_back(std::move(connection));
  return result;
}

}  // namespace rdm::rdmd
