// SPDX-License-Identifier: MIT
#include "catalog/os/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "catalog/os/atomic_file.h"
#include "catalog/os/error.h"
#include "qxapi/escaped.h"

namespace rdm::catalog {
namespace {

namespace fs = std::filesystem;

/// remove_leftovers removes temporary files of killed writers. It ignores errors: such files do no harm.
void remove_leftovers(const std::string &database) {
  std::error_code ignored;
  for (const char *file : {"", ".url", ".idx"}) fs::remove(database + file + std::string(next_state_suffix), ignored);
  const std::string prefix = fs::path(database).filename().string() + std::string(scratch_mark);
  for (const auto &entry : fs::directory_iterator(directory_of(database), ignored))
    if (entry.path().filename().string().compare(0, prefix.size(), prefix) == 0) fs::remove(entry.path(), ignored);
}

/// open_lock opens a file for writing or, after EACCES, for reading. Some file systems need the former for flock.
HostFileGuard open_lock(const std::string &path, int flags = 0) {
  HostFileGuard file = open_file(path, O_RDWR | flags, 0644);
  return !file && errno == EACCES ? open_file(path, O_RDONLY) : std::move(file);
}

/// is_named returns true if a path names an open file: its last holder may have removed it.
bool is_named(const HostFileGuard &file, const std::string &path) {
  struct stat opened, named;
  return ::fstat(file.get(), &opened) == 0 && ::stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

bool is_absent(const std::string &path) {
  struct stat ignored;
  return ::lstat(path.c_str(), &ignored) != 0 && errno == ENOENT;
}

/// holder_of returns the process that locked a file, from /proc/locks, or 0 if it is not known. A line there is
/// "1: FLOCK ADVISORY WRITE 4711 fe:00:1234 0 EOF", with the process, the device and the inode.
pid_t holder_of(const struct stat &file) {
  std::ifstream locks("/proc/locks");
  std::string line;
  while (std::getline(locks, line)) {
    std::istringstream words(line);
    std::string ordinal, kind, mode, access;
    pid_t process = 0;
    unsigned device_major = 0, device_minor = 0;
    unsigned long long inode = 0;
    char colon = 0;
    words >> ordinal >> kind >> mode >> access >> process >> std::hex >> device_major >> colon >> device_minor >>
        colon >> std::dec >> inode;
    const bool is_held = words && kind == "FLOCK" && makedev(device_major, device_minor) == file.st_dev;
    if (is_held && inode == file.st_ino) return process;
  }
  return 0;
}

/// program_of returns the name of a process, without control characters, or an empty text if it has ended. A child of
/// it may still hold the lock.
std::string program_of(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return without_controls(name, '?');
}

std::string describe_holder(const HostFileGuard &file) {
  struct stat status;
  const pid_t process = ::fstat(file.get(), &status) == 0 ? holder_of(status) : 0;
  const std::string program = process != 0 ? program_of(process) : "";
  return program.empty() ? "another process" : "process " + std::to_string(process) + " (" + program + ")";
}

bool is_locked(const HostFileGuard &file, int how, const std::string &path) {
  if (uninterrupted([&] { return ::flock(file.get(), how); }) == 0) return true;
  if (errno == EWOULDBLOCK) return false;
  throw system_failure("cannot lock " + path);
}

/// is_locked_within polls: flock has no time limit.
bool is_locked_within(double seconds, const HostFileGuard &file, const std::string &path) {
  using Clock = std::chrono::steady_clock;
  constexpr auto pause = std::chrono::milliseconds(50);
  const std::chrono::duration<double> limit(seconds);
  for (const auto start = Clock::now(); Clock::now() - start < limit;) {
    std::this_thread::sleep_for(std::min<std::chrono::duration<double>>(pause, limit));
    if (is_locked(file, LOCK_EX | LOCK_NB, path)) return true;
  }
  return false;
}

std::string seconds_text(double seconds) {
  std::ostringstream text;
  text << seconds << (seconds == 1 ? " second" : " seconds");
  return text.str();
}

}  // namespace

Lock::Lock(const std::string &database, double seconds, const Message &message) : database_(database) {
  const std::string path = path_for(database);
  do {
    file_ = HostFileGuard();
    open();
    wait(seconds, message);
  } while (!is_named(file_, path));
  remove_leftovers(database);
}

/// A writer that waits for the lock of a removed file notices that its path does not name it, and opens the path again.
Lock::~Lock() {
  const std::string path = path_for(database_);
  const bool is_useless = file_ && is_created_ && (is_withdrawn_ || is_absent(database_));
  if (is_useless && is_named(file_, path)) ::unlink(path.c_str());
}

void Lock::open() {
  const std::string path = path_for(database_);
  // The file may be removed between the two calls. O_CREAT without O_EXCL would not tell whether it created the file.
  for (int attempt = 0; !file_ && attempt < 100; ++attempt) {
    file_ = open_file(path, O_RDWR | O_CREAT | O_EXCL, 0644);
    is_created_ = static_cast<bool>(file_);
    if (!file_ && errno == EEXIST) file_ = open_lock(path);
  }
  // A dangling symbolic link exists for O_EXCL, and only O_CREAT opens it.
  if (!file_) file_ = open_lock(path, O_CREAT);
  if (!file_) throw system_failure("cannot lock " + path);
}

void Lock::wait(double seconds, const Message &message) const {
  const std::string path = path_for(database_);
  if (is_locked(file_, LOCK_EX | LOCK_NB, path)) return;
  if (seconds != 0) message("waiting for " + describe_holder(file_) + ", which holds " + path);
  if (seconds < 0)
    is_locked(file_, LOCK_EX, path);
  else if (!is_locked_within(seconds, file_, path))
    throw Failure("cannot lock " + path + ": " + describe_holder(file_) + " still holds it after " +
                  seconds_text(seconds));
}

}  // namespace rdm::catalog
