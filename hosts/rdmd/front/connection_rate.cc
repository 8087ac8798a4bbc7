// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/connection_rate.h"

#include <algorithm>

namespace rdm::rdmd {

ConnectionRate::ConnectionRate(double per_second) {
  if (per_second <= 0) return;
  // Thirty years, which a duration can still hold.
  constexpr double longest_interval = 1e9;
  const std::chrono::duration<double> interval(std::min(1 / per_second, longest_interval));
  interval_ = std::chrono::duration_cast<io::Clock::duration>(interval);
  tolerance_ = std::max<io::Clock::duration>(burst_time - interval_, io::Clock::duration(0));
}

ConnectionRate::Bucket &ConnectionRate::bucket_of(const ClientKey &key) {
  const auto [found, added] = buckets_.try_emplace(key);
  Bucket &bucket = found->second;
  if (added)
    bucket.key = key;
  else
    recent_.erase(recent_.iterator_to(bucket));
  recent_.push_back(bucket);
  return bucket;
}

/// forget_full forgets clients whose bucket is full, and the least recent one if there are too many.
void ConnectionRate::forget_full(io::Clock::time_point now) {
  while (!recent_.empty() && (recent_.front().full_at <= now || buckets_.size() > most_clients)) {
    const ClientKey key = recent_.front().key;
    recent_.pop_front();
    buckets_.erase(key);
  }
}

bool ConnectionRate::take(const ClientKey &key, io::Clock::time_point now) {
  if (interval_ == io::Clock::duration(0)) return true;
  const std::lock_guard lock(mutex_);
  forget_full(now);
  Bucket &bucket = bucket_of(key);
  const io::Clock::time_point full_at = std::max(bucket.full_at, now);
  if (full_at - now > tolerance_) return false;
  bucket.full_at = full_at + interval_;
  return true;
}

std::size_t ConnectionRate::clients() const {
  const std::lock_guard lock(mutex_);
  return buckets_.size();
}

}  // namespace rdm::rdmd
