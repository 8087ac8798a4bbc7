// SPDX-License-Identifier: MIT
/// Keeping a target equal to a catalog of a server.
#ifndef TOOLS_RDM_MIRROR_H
#define TOOLS_RDM_MIRROR_H

#include <unordered_map>
#include <vector>

#include "tools/rdm/delivery.h"
#include "tools/rdm/listing.h"
#include "tools/rdm/state.h"
#include "tools/rdm/target.h"

namespace rdm::client {

/// Mirror makes one run. A run compares either the latest changes or, if that was not done for some time or if the
/// target is not as the last run left it, the whole list: only then it notices what is gone.
class Mirror {
 public:
  /// All arguments must outlive the mirror.
  Mirror(const Options &options, const Console &console, Server &server, Target &target, State &state);

  /// run receives what the target lacks, applies it and saves the state. After a run that compares the whole list and
  /// is_settled, the target equals the catalog as it was at one instant of the run. Throws a Distrust, and changes
  /// nothing, if fewer than half of the held descriptions are listed, unless the options say that this is true.
  Changes run();

  /// is_full returns true if the run has compared the whole list. is_settled returns false if the catalog changed
  /// faster than it could be compared. held returns the number of descriptions in the target.
  bool is_full() const { return is_full_; }
  bool is_settled() const { return is_settled_; }
  size_t held() const { return times_.size(); }

 private:
  void read_target();
  bool must_be_full() const;
  Listing list();
  void require_plausible(const Listing &listing) const;
  bool is_wanted(const Listing::Entry &entry) const;
  Wish wish_of(const Listing &listing) const;
  Listing fetch();
  Target::Digests gone_from(const Listing &listing) const;
  void finish(const Listing &listing, const Target::Digests &gone);
  Digest mark() const;

  const Options &options_;
  const Console &console_;
  Server &server_;
  Target &target_;
  State &state_;
  Received received_;
  std::unordered_map<Digest, time_t, DigestHash> times_;  // of what is held, or will be after the run
  std::vector<Digest> held_before_;
  bool is_full_ = false, is_settled_ = false;
};

}  // namespace rdm::client

#endif
