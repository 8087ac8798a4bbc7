// SPDX-License-Identifier: MIT
/// A catalog of one size with what reads it: the measure and the server.
#ifndef BENCH_SPEED_STAGE_H
#define BENCH_SPEED_STAGE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "site.h"
#include "speed/options.h"
#include "speed/raw_server.h"
#include "speed/rounds.h"

namespace rdm::bench {

/// Stage has a catalog that came in deliveries of 90, 9 and 1 %. Of the last the first description came alone: among
/// descriptions of one time a since query may begin at any, so that it would not have a certain size.
class Stage {
 public:
  Stage(std::size_t records, const Options &options);

  const Options &options() const { return options_; }
  const Site &site() const { return site_; }
  std::size_t records() const { return records_; }
  /// newest returns the number of descriptions in the last 1 %, since_target the request for these.
  std::size_t newest() const { return newest_; }
  std::string since_target() const;

  const RawServer &raw() const { return raw_; }
  const support::RdmdProcess &server() const { return *server_; }
  int port() const { return port_; }
  /// start_server returns another server of the catalog, without limits on answers and clients.
  std::unique_ptr<support::RdmdProcess> start_server(const std::string &workers) const;

  /// touch changes the times of the catalog's files, so that a server takes them for new ones, and waits until they are
  /// old enough for it to rely on their times.
  void touch() const;

 private:
  const Options &options_;
  std::size_t records_, newest_;
  Site site_;
  RawServer raw_;  // before the server, whose process object has threads
  std::unique_ptr<support::RdmdProcess> server_;
  int port_;
};

/// cost_of_work does the work once, and then again until 20 ms have passed. Returns the mean time, and the mean CPU
/// time of a server with all its processes.
Cost cost_of_work(pid_t server, const std::function<void()> &work);

/// cost_of_single_work does the work once.
Cost cost_of_single_work(pid_t server, const std::function<void()> &work);

}  // namespace rdm::bench

#endif
