// SPDX-License-Identifier: MIT
/// Work in a child process, which can be interrupted together with the commands that it runs.
#ifndef RDMCTL_SUPERVISOR_H
#define RDMCTL_SUPERVISOR_H

#include <csignal>
#include <optional>

namespace rdm::rdmctl {

/// HeldSignals blocks SIGINT, SIGTERM and SIGHUP in its scope, so that what the scope has made can be removed before
/// the process ends.
class HeldSignals {
 public:
  HeldSignals();
  HeldSignals(const HeldSignals &) = delete;
  HeldSignals &operator=(const HeldSignals &) = delete;
  ~HeldSignals();

  const sigset_t &held() const { return held_; }
  /// release restores the signals of the process, for a child that shall end by them.
  void release() const;

 private:
  sigset_t held_, before_;
};

/// What became of a child. When a signal ended it, or this process was to end, no child of either is left.
struct Ended {
  int status = 0;  // the exit status, when there was no signal
  int signal = 0;
};

/// supervise forks. In the child it returns nothing, and the child does the work. In the parent it returns what became
/// of the child. Throws a Failure when there can be no child.
std::optional<Ended> supervise(const HeldSignals &signals);

}  // namespace rdm::rdmctl

#endif
