// SPDX-License-Identifier: MIT
/// Working in a child process that can be interrupted together with the commands that it runs.
#ifndef RDMCTL_SUPERVISOR_H
#define RDMCTL_SUPERVISOR_H

#include <csignal>
#include <optional>

namespace rdm::rdmctl {

/// HeldSignals blocks SIGINT, SIGTERM, SIGHUP and SIGCHLD during its lifetime, so that temporary files can be removed
/// before the process ends.
class HeldSignals {
 public:
  HeldSignals();
  HeldSignals(const HeldSignals &) = delete;
  HeldSignals &operator=(const HeldSignals &) = delete;
  ~HeldSignals();

  /// held returns SIGINT, SIGTERM and SIGHUP.
  const sigset_t &held() const { return held_; }
  /// release restores the signal mask, for a child that these signals shall end.
  void release() const;

 private:
  sigset_t held_, before_;
};

/// ChildExit is the end of a child. After a signal, no process that the child has started is left.
struct ChildExit {
  int status = 0;  // exit status, if `signal` is 0
  int signal = 0;  // that has killed the child or was sent to this process
};

/// supervise forks. Returns std::nullopt in the child, which does the work. In the parent it waits for the child and
/// returns the child's exit. Throws a SystemFailure if fork fails.
std::optional<ChildExit> supervise(const HeldSignals &signals);

}  // namespace rdm::rdmctl

#endif
