// SPDX-License-Identifier: MIT
/// What the server counts, as atomic numbers, and their text for Prometheus.
///
/// Labels come from fixed lists; no text of a client becomes one, so clients cannot make the text grow. Counting takes
/// no lock but a shared one for the list of catalogs. All members may be called from any thread.
///
/// Connections feed requests, bytes and times (count). The server feeds the restarts of workers of which the master
/// tells it (worker_restarted). What only a moment has, such as the length of the queue, is in the Moment that
/// Server::moment fills when the text is made.
#ifndef HOSTS_RDMD_FRONT_METRICS_H
#define HOSTS_RDMD_FRONT_METRICS_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/exposition.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/log.h"

namespace rdm::rdmd {

/// RequestResult says what became of a request.
enum class RequestResult {
  answered,     // the whole answer was sent, with a status below 400
  not_found,    // 404
  refused,      // another status from 400 to 499
  failed,       // 500, or another status from 501 on
  unavailable,  // 503
  cut,          // the connection ended within the answer
  gone,         // the connection ended before there was an answer
  count
};

RequestResult result_of(const AccessEntry &entry);

/// WorkerState is the state of a worker that the front has. It gets workers when they are ready, so none is starting.
enum class WorkerState { idle, busy, stopping, count };

/// Counter is a number that only grows.
class Counter {
 public:
  void add(std::uint64_t count = 1) { value_.fetch_add(count, std::memory_order_relaxed); }
  std::uint64_t value() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> value_ = 0;
};

/// Histogram counts times in ranges from 100 microseconds to one minute.
class Histogram {
 public:
  using Time = AccessEntry::Time;
  static constexpr std::array bounds = {100'000LL,        250'000LL,       500'000LL,       1'000'000LL,
                                        2'500'000LL,      5'000'000LL,     10'000'000LL,    25'000'000LL,
                                        50'000'000LL,     100'000'000LL,   250'000'000LL,   500'000'000LL,
                                        1'000'000'000LL,  2'500'000'000LL, 5'000'000'000LL, 10'000'000'000LL,
                                        30'000'000'000LL, 60'000'000'000LL};  // nanoseconds

  /// observe counts a time; a negative one counts as 0.
  void observe(Time time);
  /// write adds the samples of the current family.
  void write(Exposition &text) const;

 private:
  std::array<Counter, bounds.size() + 1> counts_;  // of times up to each bound, and beyond the last
  Counter sum_;                                    // nanoseconds
};

/// CatalogFigures is what the metrics say of a catalog.
struct CatalogFigures {
  std::string csid;
  bool failing = false;
  std::optional<std::uint64_t> descriptions;  // in the index
  std::optional<std::int64_t> newest_change;  // seconds since 1970
};

/// Moment is what the metrics say of the moment in which they are asked for.
struct Moment {
  ConnectionCounts connections{};  // by state
  std::uint64_t accepted = 0;      // connections so far
  std::size_t queued = 0;          // requests that wait for the plug-in
  std::array<std::size_t, static_cast<std::size_t>(WorkerState::count)> workers{};
  std::int64_t spilled = 0;  // bytes of answers in temporary files
  bool ready = false;
  std::vector<CatalogFigures> catalogs;
};

class Metrics {
 public:
  Metrics();

  /// set_catalogs makes these CSIDs labels; requests for others count under "unknown". The numbers of catalogs that are
  /// no longer among them are dropped.
  void set_catalogs(const std::vector<std::string> &csids);

  /// count counts a request whose entry is complete.
  void count(const AccessEntry &entry);
  /// worker_restarted counts a worker that was started in place of one that has ended.
  void worker_restarted() { restarts_.add(); }

  /// text returns all metrics; those of troubles are the counts of the error log.
  std::string text(const Moment &moment, const ErrorLog &errors) const;

 private:
  static constexpr auto results = static_cast<std::size_t>(RequestResult::count);
  static constexpr std::size_t types = 14;
  using Results = std::array<Counter, results>;
  using Catalog = std::array<Results, types>;

  static std::size_t type_index(const AccessEntry &entry);
  static void write_requests(Exposition &text, std::string_view csid, const Catalog &catalog);
  void write_served(Exposition &text) const;
  void write_moment(Exposition &text, const Moment &moment) const;
  static void write_catalogs(Exposition &text, const std::vector<CatalogFigures> &catalogs);

  const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  mutable std::shared_mutex catalogs_mutex_;
  std::map<std::string, Catalog, std::less<>> catalogs_;
  Catalog unknown_;  // of requests for no known catalog
  Counter descriptions_, bytes_, restarts_;
  Histogram queued_, served_, sent_;
};

}  // namespace rdm::rdmd

#endif
