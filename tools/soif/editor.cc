// SPDX-License-Identifier: MIT
#include "tools/soif/editor.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "qxapi/temporary_directory.h"

namespace rdm::soif_tool {
namespace {

using catalog::Failure;

/// IgnoredSignals ignores the keys that interrupt a program: they are meant for the editor.
class IgnoredSignals {
 public:
  IgnoredSignals() : interrupt_(std::signal(SIGINT, SIG_IGN)), quit_(std::signal(SIGQUIT, SIG_IGN)) {}
  IgnoredSignals(const IgnoredSignals &) = delete;
  IgnoredSignals &operator=(const IgnoredSignals &) = delete;
  ~IgnoredSignals() {
    std::signal(SIGINT, interrupt_);
    std::signal(SIGQUIT, quit_);
  }

 private:
  void (*interrupt_)(int);
  void (*quit_)(int);
};

/// Attributes gives a program the default actions of signals that are ignored here.
class Attributes {
 public:
  Attributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) sigaddset(&signals, signal);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  Attributes(const Attributes &) = delete;
  Attributes &operator=(const Attributes &) = delete;
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  const posix_spawnattr_t *get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

/// run runs a command of the shell with an argument and returns its wait status.
int run(const std::string &command, const std::string &argument) {
  const IgnoredSignals ignored;
  const Attributes attributes;
  std::string script = command + " \"$@\"", name = "sh", option = "-c", path = argument;
  char *const words[] = {name.data(), option.data(), script.data(), name.data(), path.data(), nullptr};
  pid_t child = 0;
  errno = ::posix_spawn(&child, "/bin/sh", nullptr, attributes.get(), words, environ);
  if (errno != 0) throw catalog::system_failure("cannot run /bin/sh");
  int status = 0;
  if (uninterrupted([&] { return ::waitpid(child, &status, 0); }) < 0) throw catalog::system_failure("waitpid");
  return status;
}

std::string editor() {
  const char *const named = std::getenv("EDITOR");
  return named != nullptr && *named != '\0' ? named : "vi";
}

}  // namespace

EditedFile::EditedFile(const std::string &text)
    : path_(std::string(named_temporary_directory()) + "/soif-XXXXXX.soif") {
  HostFileGuard file(::mkostemps(path_.data(), 5, O_CLOEXEC));
  if (!file) {
    is_kept_ = true;
    throw catalog::system_failure(std::string("cannot create a file in ") + named_temporary_directory());
  }
  try {
    catalog::File(std::move(file), path_).write_at(0, text);
  } catch (...) {
    ::unlink(path_.c_str());
    throw;
  }
}

EditedFile::~EditedFile() {
  if (!is_kept_) ::unlink(path_.c_str());
}

void EditedFile::edit() const {
  const std::string command = editor();
  const int status = run(command, path_);
  if (WIFSIGNALED(status)) throw Failure(command + " was ended by signal " + std::to_string(WTERMSIG(status)));
  if (WEXITSTATUS(status) != 0) throw Failure(command + " ended with status " + std::to_string(WEXITSTATUS(status)));
}

std::string EditedFile::text() const {
  const catalog::File file = catalog::File::open(path_);
  std::string text(static_cast<size_t>(file.size()), '\0');
  file.read_at(0, text.data(), text.size());
  return text;
}

}  // namespace rdm::soif_tool
