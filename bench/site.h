// SPDX-License-Identifier: MIT
/// A server with one generated catalog, for programs that measure.
#ifndef BENCH_SITE_H
#define BENCH_SITE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/rdmd/rdmd_process.h"
#include "support/files.h"

namespace rdm::bench {

inline constexpr const char *catalog_name = "x-catalog://localhost:8380/bench";
/// The targets of a status request and of a harvest of the whole catalog.
inline constexpr const char *status_target = "/rdm/status-request";
inline constexpr const char *harvest_target = "/rdm/rd-request?ql=gatherer&scope=all";

/// fail throws std::runtime_error with the message. An exception lets destructors stop the servers.
[[noreturn]] void fail(const std::string &message);

/// run_bench returns the exit status of a program: 0 if `bench` returns true, otherwise 1. It prints what is thrown.
int run_bench(const std::function<bool()> &bench);

/// use_all_files raises the limit of open files of this program and of those that it starts to the hard limit, and
/// returns that.
std::size_t use_all_files();

/// minidba returns a shell command without its verb: the tool of this build, a database and its index.
std::string minidba(const std::string &database);

/// Site is a directory with a configuration and a catalog, which it removes at the end.
class Site {
 public:
  /// The catalog has the descriptions from 0 on. They come in deliveries of these counts and a last one with the rest;
  /// each delivery has a later time of change.
  explicit Site(std::size_t records, const std::vector<std::size_t> &deliveries = {});

  /// start runs rdmd on a free port, with these arguments besides. The server lives as long as the caller keeps it.
  std::unique_ptr<support::RdmdProcess> start(const std::vector<std::string> &arguments = {}) const;

  /// files_left returns the number of entries in the directory for temporary files.
  std::size_t files_left() const;
  /// processes_left returns the number of processes with this site's configuration in their command line.
  std::size_t processes_left() const;
  std::string path(const std::string &name) const { return directory_.path(name); }
  std::string database() const { return path("bench.db"); }

 private:
  support::TemporaryDirectory directory_;
};

}  // namespace rdm::bench

#endif
