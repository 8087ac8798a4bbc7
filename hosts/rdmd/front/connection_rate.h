// SPDX-License-Identifier: MIT
/// Limits the new connections per second of each client by a token bucket, which is full at first and holds as many
/// connections as the rate allows in burst_time, at least one.
///
/// A bucket is kept until it is full again. At most most_clients are kept: beyond that the client that has connected
/// least recently gets a full bucket. Procedures take constant time on average and may be called from any thread.
#ifndef HOSTS_RDMD_FRONT_CONNECTION_RATE_H
#define HOSTS_RDMD_FRONT_CONNECTION_RATE_H

#include <cstddef>
#include <mutex>
#include <unordered_map>

#include <boost/intrusive/list.hpp>

#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

class ConnectionRate {
 public:
  static constexpr std::chrono::seconds burst_time{5};
  static constexpr std::size_t most_clients = 65536;

  /// `per_second` may be a fraction; 0: no limit.
  explicit ConnectionRate(double per_second);

  /// take counts a new connection of the client and returns true if it is within the limit.
  bool take(const ClientKey &key, io::Clock::time_point now);
  /// clients returns how many buckets are kept.
  std::size_t clients() const;

 private:
  struct Bucket {
    ClientKey key;
    io::Clock::time_point full_at;
    boost::intrusive::list_member_hook<> hook;
  };
  using Recent = boost::intrusive::list<
      Bucket, boost::intrusive::member_hook<Bucket, boost::intrusive::list_member_hook<>, &Bucket::hook>>;

  Bucket &bucket_of(const ClientKey &key);
  void forget_full(io::Clock::time_point now);

  io::Clock::duration interval_{};   // in which a bucket gains a connection; 0: no limit
  io::Clock::duration tolerance_{};  // a bucket that is full after this time has one connection left
  mutable std::mutex mutex_;
  std::unordered_map<ClientKey, Bucket> buckets_;
  Recent recent_;  // the least recently used first
};

}  // namespace rdm::rdmd

#endif
