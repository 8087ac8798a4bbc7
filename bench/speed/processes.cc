// SPDX-License-Identifier: MIT
#include "speed/processes.h"

#include <sys/stat.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <utility>

namespace rdm::bench {
namespace {

namespace fs = std::filesystem;

std::string in_proc(pid_t process, const std::string &name) { return "/proc/" + std::to_string(process) + "/" + name; }

/// text_of returns the text of a file, empty if its process or thread has ended.
std::string text_of(const fs::path &path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// entries returns the entries of a directory; none if its process has ended.
fs::directory_iterator entries(const std::string &path) {
  std::error_code ended;
  return fs::directory_iterator(path, ended);
}

std::uint64_t leading_number(std::string_view text) {
  std::uint64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

void add_descendants(pid_t process, std::vector<pid_t> &all) {
  all.push_back(process);
  for (const fs::directory_entry &thread : entries(in_proc(process, "task"))) {
    std::ifstream children(thread.path() / "children");
    for (pid_t child = 0; children >> child;) add_descendants(child, all);
  }
}

}  // namespace

std::vector<pid_t> processes_of(pid_t root) {
  std::vector<pid_t> all;
  add_descendants(root, all);
  return all;
}

double cpu_time(const std::vector<pid_t> &processes) {
  std::uint64_t sum = 0;
  for (const pid_t process : processes)
    for (const fs::directory_entry &thread : entries(in_proc(process, "task")))
      sum += run_time(text_of(thread.path() / "schedstat"));
  return static_cast<double>(sum) * 1e-9;
}

std::uint64_t own_memory(const std::vector<pid_t> &processes) {
  std::uint64_t sum = 0;
  for (const pid_t process : processes) {
    const std::string status = text_of(in_proc(process, "status"));
    sum += status_bytes(status, "RssAnon") + status_bytes(status, "RssShmem");
  }
  return sum;
}

std::uint64_t unlinked_bytes(const std::vector<pid_t> &processes) {
  std::set<std::pair<dev_t, ino_t>> seen;
  std::uint64_t sum = 0;
  for (const pid_t process : processes)
    for (const fs::directory_entry &file : entries(in_proc(process, "fd"))) {
      struct stat state {};
      const bool unlinked = ::stat(file.path().c_str(), &state) == 0 && S_ISREG(state.st_mode) && state.st_nlink == 0;
      if (unlinked && seen.emplace(state.st_dev, state.st_ino).second)
        sum += static_cast<std::uint64_t>(state.st_blocks) * 512;
    }
  return sum;
}

std::uint64_t run_time(std::string_view schedstat) { return leading_number(schedstat); }

std::uint64_t status_bytes(std::string_view status, std::string_view field) {
  for (std::size_t at = 0; at < status.size();) {
    std::string_view line = status.substr(at, status.find('\n', at) - at);
    at += line.size() + 1;
    if (!line.starts_with(field) || !line.substr(field.size()).starts_with(':')) continue;
    line.remove_prefix(field.size() + 1);
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    return leading_number(line) * 1024;
  }
  return 0;
}

}  // namespace rdm::bench
