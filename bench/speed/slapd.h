// SPDX-License-Identifier: MIT
/// slapd of OpenLDAP with the same descriptions, for comparison.
#ifndef BENCH_SPEED_SLAPD_H
#define BENCH_SPEED_SLAPD_H

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "support/files.h"

namespace rdm::bench {

/// The name of an attribute of the directory with the number of the description. The directory has an index of it.
inline constexpr const char *slapd_number = "rdNumber";

/// SlapdDirectory is a directory for slapd, at first empty: its configuration, and the descriptions from 0 on in a file
/// that slapadd reads.
class SlapdDirectory {
 public:
  /// installed returns true if the machine has slapd, slapadd and the schema that the configuration includes.
  static bool installed();

  explicit SlapdDirectory(std::size_t records);

  /// load_command returns the shell command that fills the empty directory and makes its index; clear empties it.
  std::string load_command() const;
  void clear() const;
  std::string configuration() const { return files_.path("slapd.conf"); }
  std::string path(const std::string &name) const { return files_.path(name); }

 private:
  support::TemporaryDirectory files_;
};

/// Slapd serves a filled directory until the end of its scope.
class Slapd {
 public:
  explicit Slapd(const SlapdDirectory &directory);
  Slapd(const Slapd &) = delete;
  Slapd &operator=(const Slapd &) = delete;
  ~Slapd();

  int port() const { return port_; }
  pid_t pid() const { return process_; }

 private:
  int port_;
  pid_t process_ = -1;
};

}  // namespace rdm::bench

#endif
