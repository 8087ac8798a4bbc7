// SPDX-License-Identifier: MIT
#include "hosts/rdmd/signals.h"

#include <csignal>
#include <initializer_list>

namespace rdm::rdmd {

void hold_signals() {
  sigset_t held;
  ::sigemptyset(&held);
  for (const int signal : {SIGHUP, SIGUSR1, SIGUSR2}) ::sigaddset(&held, signal);
  ::sigprocmask(SIG_SETMASK, &held, nullptr);
}

void unblock_signals() {
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace rdm::rdmd
