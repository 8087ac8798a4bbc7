// SPDX-License-Identifier: MIT
/// What a mirror is kept in: a catalog, or a directory with a file for each description.
#ifndef TOOLS_RDM_TARGET_H
#define TOOLS_RDM_TARGET_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/rdm/options.h"
#include "tools/rdm/received.h"

namespace rdm::client {

/// Changes are what became of a mirror.
struct Changes {
  int64_t added = 0, changed = 0;
  std::vector<std::string> gone;      // URLs that were removed
  std::vector<std::string> rejected;  // descriptions that cannot be kept, for messages
};

/// Target holds descriptions. Its procedures throw a Failure.
class Target {
 public:
  Target() = default;
  Target(const Target &) = delete;
  Target &operator=(const Target &) = delete;
  virtual ~Target() = default;

  /// each visits what is held: the digest of the URL, and the time of change in seconds since 1970, 0 if the
  /// description has none, or `damaged`.
  using Visitor = std::function<void(const Digest &key, time_t time)>;
  virtual void each(const Visitor &visit) const = 0;
  static constexpr time_t damaged = -1;

  /// apply puts the descriptions of `received` and removes those whose URLs have these digests, which it does not put
  /// either. Everything is on the disk when it returns.
  using Digests = std::unordered_set<Digest, DigestHash>;
  virtual Changes apply(const Received &received, const Digests &gone) = 0;
};

/// open_target returns the target at a path: a directory if it is one or ends in a slash, otherwise a database. It need
/// not exist.
std::unique_ptr<Target> open_target(const Options &options, const Console &console);

/// database_target and directory_target return a target of that kind. A database is served and maintained like any
/// other: its index and its URL map are kept with it. In a directory, the file of a description is named after the
/// SHA-256 digest of its URL; other files are left alone.
std::unique_ptr<Target> database_target(const std::string &path, const Options &options, const Console &console);
std::unique_ptr<Target> directory_target(const std::string &path);

}  // namespace rdm::client

#endif
