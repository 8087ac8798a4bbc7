// SPDX-License-Identifier: MIT
#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/files.h"

namespace rdm::support {
namespace {

void redirect(int stream, const std::string &path, int flags) {
  const int fd = ::open(path.c_str(), flags, 0600);
  if (fd == -1 || ::dup2(fd, stream) == -1) ::_exit(126);
  ::close(fd);
}

}  // namespace

pid_t start(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
            const std::string &errors) {
  std::vector<char *> words;
  for (const std::string &word : arguments) words.push_back(const_cast<char *>(word.c_str()));
  words.push_back(nullptr);
  const pid_t child = ::fork();
  if (child != 0) return child;
  redirect(STDIN_FILENO, input, O_RDONLY);
  redirect(STDOUT_FILENO, out, O_WRONLY | O_CREAT | O_TRUNC);
  redirect(STDERR_FILENO, errors, O_WRONLY | O_CREAT | O_TRUNC);
  ::execv(words[0], words.data());
  ::_exit(127);
}

int wait_for(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) == -1)
    if (errno != EINTR) {
      ADD_FAILURE() << "no child " << child;
      return -1;
    }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void start_and_kill(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
                    const std::string &errors, std::chrono::microseconds delay) {
  const Uncounted uncounted;
  const pid_t child = start(arguments, input, out, errors);
  std::this_thread::sleep_for(delay);
  ::kill(child, SIGKILL);
  wait_for(child);
}

std::vector<std::string> as_owner(std::vector<std::string> arguments) {
  if (::geteuid() != 0) return arguments;
  arguments.insert(arguments.begin(), {"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search"});
  return arguments;
}

Finished run(const std::vector<std::string> &arguments, const std::string &input) {
  const TemporaryDirectory directory;
  const std::string out = directory.path("out"), errors = directory.path("errors");
  const int status = wait_for(start(arguments, directory.write("input", input), out, errors));
  return {status, read_file(out), read_file(errors)};
}

}  // namespace rdm::support
