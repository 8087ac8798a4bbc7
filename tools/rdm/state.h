// SPDX-License-Identifier: MIT
/// What is remembered from one run to the next, for each server and catalog.
#ifndef TOOLS_RDM_STATE_H
#define TOOLS_RDM_STATE_H

#include <cstdint>
#include <ctime>
#include <string>
#include <unordered_map>

#include "qxapi/guard.h"
#include "tools/rdm/digest.h"
#include "tools/rdm/options.h"

namespace rdm::client {

/// Held is a description that was received: its time of change, the bytes of its text and their digest.
struct Held {
  time_t time = 0;
  int64_t size = 0;
  Digest content{};
};

/// State is the memory of one kind of work on one catalog. Its file is replaced atomically.
class State {
 public:
  /// State reads the state of a work: its name and what distinguishes it, such as a target. It takes the lock of the
  /// state. Throws a Failure if another process holds the lock, or if the file is damaged or cannot be read.
  State(const Options &options, const std::string &work);

  /// is_new returns true if there is no state yet.
  bool is_new() const { return is_new_; }
  /// save writes the state.
  void save();

  time_t settled = 0;                                 // up to this time of change, all is known
  time_t compared = 0;                                // when the whole list was compared, by the local clock
  Digest mark{};                                      // of what a mirror holds
  std::unordered_map<Digest, Held, DigestHash> held;  // by the digest of the URL; of the latest times only

 private:
  void read();
  void take(const std::string &line);

  std::string name_;  // of the work, as in the file
  std::string path_;
  HostFileGuard lock_;
  bool is_new_ = true;
};

}  // namespace rdm::client

#endif
