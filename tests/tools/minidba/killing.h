// SPDX-License-Identifier: MIT
/// Killing a program before its nth change to a file. Counting system calls instead of time makes the tests independent
/// of the speed of the machine.
#ifndef TESTS_TOOLS_MINIDBA_KILLING_H
#define TESTS_TOOLS_MINIDBA_KILLING_H

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/process.h"

namespace rdm {

/// Traced is a program under ptrace. It stops before each system call that changes a file or a name. Writes to standard
/// streams do not count.
class Traced {
 public:
  Traced(const std::vector<std::string> &arguments, const std::string &input, const std::string &output)
      : program_(start(arguments, input, output)) {
    wait_for_stop();
    ::ptrace(PTRACE_SETOPTIONS, program_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  }
  Traced(const Traced &) = delete;
  Traced &operator=(const Traced &) = delete;
  ~Traced() { end(); }

  /// next runs the program up to its next change. It returns false if the program ends without one.
  bool next() {
    while (is_running_) {
      ::ptrace(PTRACE_SYSCALL, program_, nullptr, 0);
      wait_for_stop();
      if (is_running_ && WSTOPSIG(status_) == (SIGTRAP | 0x80) && is_at_change()) return true;
    }
    return false;
  }

  /// end kills the program if it runs. It returns its exit status, or 128 plus the number of the signal.
  int end() {
    if (is_running_) ::kill(program_, SIGKILL);
    while (is_running_) wait_for_stop();
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
  }

 private:
  static pid_t start(const std::vector<std::string> &arguments, const std::string &input, const std::string &output) {
    // The leak sanitizer uses ptrace too, and a process has only one tracer.
    const support::Environment unsearched("ASAN_OPTIONS", "detect_leaks=0");
    const support::Uncounted uncounted;
    std::vector<char *> words;
    for (const std::string &word : arguments) words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    const pid_t program = ::fork();
    if (program != 0) return program;
    const int in = ::open(input.c_str(), O_RDONLY), out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (::dup2(in, STDIN_FILENO) == -1 || ::dup2(out, STDOUT_FILENO) == -1 || ::dup2(out, STDERR_FILENO) == -1)
      ::_exit(126);
    ::close(in);
    ::close(out);
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) ::execv(words[0], words.data());
    ::_exit(127);
  }

  void wait_for_stop() {
    if (::waitpid(program_, &status_, 0) != program_) ADD_FAILURE() << "no child " << program_;
    is_running_ = WIFSTOPPED(status_);
  }

  bool is_at_change() const {
    __ptrace_syscall_info call{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, program_, sizeof call, &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) return false;
    if (call.entry.nr == SYS_openat) return (call.entry.args[2] & O_CREAT) != 0 && !is_nowhere(call.entry.args[1]);
    return naming_calls().contains(call.entry.nr) ||
           (writing_calls().contains(call.entry.nr) && call.entry.args[0] > STDERR_FILENO);
  }

  /// is_nowhere returns true if a path of the program is the coverage file of an uncounted one.
  bool is_nowhere(uint64_t path) const {
    const long start = ::ptrace(PTRACE_PEEKDATA, program_, path, nullptr);
    return std::memcmp(&start, support::Uncounted::nowhere, sizeof start) == 0;
  }

  static const std::set<uint64_t> &writing_calls() {
    static const std::set<uint64_t> calls{SYS_write, SYS_pwrite64, SYS_writev, SYS_ftruncate, SYS_copy_file_range};
    return calls;
  }

  static const std::set<uint64_t> &naming_calls() {
    static const std::set<uint64_t> calls{
#ifdef SYS_rename  // newer architectures have only the general calls
        SYS_rename, SYS_unlink,
#endif
        SYS_renameat, SYS_renameat2, SYS_unlinkat};
    return calls;
  }

  pid_t program_;
  int status_ = 0;
  bool is_running_ = true;
};

/// count_changes runs a program to its end and returns how many changes it makes.
inline long count_changes(const std::vector<std::string> &arguments, const std::string &input,
                          const std::string &output) {
  Traced program(arguments, input, output);
  long changes = 0;
  while (program.next()) ++changes;
  EXPECT_EQ(program.end(), 0);
  return changes;
}

/// crash_trials returns how often a test kills a program: RDM_CRASH_TRIALS, or 20.
inline long crash_trials() { return support::number_from("RDM_CRASH_TRIALS", 20L); }

/// change_of_trial returns the change before which a trial kills a program that makes `changes` of them: in even trials
/// any, in odd ones one of the last, which rename the files.
inline long change_of_trial(long trial, long changes) {
  return trial % 2 == 0 ? 1 + trial * changes / crash_trials() : std::max(1L, changes - trial / 2 % changes);
}

/// kill_before_change kills a program before its nth change and returns the result of end.
inline int kill_before_change(long n, const std::vector<std::string> &arguments, const std::string &input,
                              const std::string &output) {
  Traced program(arguments, input, output);
  for (long change = 0; change < n; ++change)
    if (!program.next()) break;
  return program.end();
}

}  // namespace rdm

#endif
