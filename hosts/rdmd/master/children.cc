// SPDX-License-Identifier: MIT
#include "hosts/rdmd/master/children.h"

#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>
#include <vector>

#include "hosts/rdmd/signals.h"
#include "hosts/rdmd/worker/packet.h"

namespace rdm::rdmd {
namespace {

/// close_others closes all descriptors beyond standard error but those in `kept`.
void close_others(std::vector<host_fd> kept) {
  std::sort(kept.begin(), kept.end());
  unsigned from = STDERR_FILENO + 1;
  for (const host_fd fd : kept) {
    const auto number = static_cast<unsigned>(fd);
    if (number > from) ::close_range(from, number - 1, 0);
    from = std::max(from, number + 1);
  }
  ::close_range(from, UINT_MAX, 0);
}

void reset_signals() {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2}) std::signal(signal, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  unblock_signals();
}

unsigned seconds_after_master = 0;

/// The first SIGALRM says that the master has ended; the alarm is the second one, which ends this process.
extern "C" void set_alarm(int) { ::alarm(seconds_after_master); }

/// end_after makes the end of the master the beginning of this process's last seconds. Nobody else would end a process
/// that hangs then. Restarted system calls let the others finish what they do.
void end_after(pid_t master, std::chrono::milliseconds grace) {
  seconds_after_master = static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(grace).count());
  struct sigaction action {};
  action.sa_handler = set_alarm;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  ::sigaction(SIGALRM, &action, nullptr);
  ::prctl(PR_SET_PDEATHSIG, SIGALRM);
  // The master may have ended before.
  if (::getppid() != master) ::_exit(EXIT_FAILURE);
}

/// status_of returns what `run` returns. No exception may leave the child: it would continue as another master.
int status_of(const std::function<int(HostFileGuard socket)> &run, HostFileGuard socket) noexcept {
  try {
    return run(std::move(socket));
  } catch (const std::exception &error) {
    // The master's stream for stderr writes to a descriptor that this process has closed.
    ::dprintf(STDERR_FILENO, "rdmd: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace

Child start_child(const char *name, std::chrono::milliseconds grace,
                  const std::function<int(HostFileGuard socket)> &run, const std::vector<host_fd> &kept) {
  PacketSockets sockets = make_packet_sockets();
  // Before fork(): without memory for it, there must be no child that continues as another master.
  std::vector<host_fd> own = kept;
  own.push_back(sockets.second.get());
  const pid_t master = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid > 0) return {pid, std::move(sockets.first)};
  close_others(std::move(own));
  // close_range() has closed it.
  sockets.first.release();
  reset_signals();
  end_after(master, grace);
  ::prctl(PR_SET_NAME, name);
  std::exit(status_of(run, std::move(sockets.second)));
}

std::string describe_end(int wait_status) {
  if (WIFEXITED(wait_status)) return "exited with status " + std::to_string(WEXITSTATUS(wait_status));
  const int signal = WTERMSIG(wait_status);
  return "was killed by signal " + std::to_string(signal) + " (" + ::strsignal(signal) + ")";
}

}  // namespace rdm::rdmd
