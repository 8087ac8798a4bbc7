// SPDX-License-Identifier: MIT
#include "site.h"

#include <sys/resource.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "descriptions.h"
#include "support/directories.h"
#include "support/process.h"

namespace rdm::bench {
namespace {

/// must runs a shell command.
void must(const std::string &command) {
  const auto finished = support::run({"/bin/sh", "-c", command});
  if (finished.status != 0) fail(command + ": " + finished.errors);
}

/// deliver imports `count` descriptions from `first` on.
void deliver(const Site &site, std::size_t first, std::size_t count) {
  const std::string descriptions = site.path("rds.soif");
  write_descriptions(descriptions, first, count);
  must(minidba(site.database()) + " update < " + descriptions);
  std::filesystem::remove(descriptions);
}

}  // namespace

void fail(const std::string &message) { throw std::runtime_error(message); }

std::size_t use_all_files() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) fail("getrlimit fails");
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_max;
}

int run_bench(const std::function<bool()> &bench) {
  try {
    return bench() ? 0 : 1;
  } catch (const std::exception &error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}

std::string minidba(const std::string &database) {
  return support::in_build("bin/minidba") + " -d " + database + " -i " + database + ".idx";
}

Site::Site(std::size_t records, const std::vector<std::size_t> &deliveries) {
  std::filesystem::create_directory(path("tmp"));
  std::size_t first = 0;
  for (const std::size_t count : deliveries) {
    deliver(*this, first, count);
    first += count;
  }
  deliver(*this, first, records - first);
  must(minidba(database()) + " index");
  directory_.write("csid.conf",
                   std::string("csid=\"") + catalog_name + "\"\ncatalog-database=\"" + database() + "\"\n");
  directory_.write("rdm.conf", "bindir=\"" + support::in_build("bin") + "\"\ntmpdir=\"" + path("tmp") +
                                   "\"\ncsid-config=\"" + path("csid.conf") + "\"\ncsid-default=\"" + catalog_name +
                                   "\"\nlogfile=\"" + path("rdm.log") + "\"\n");
}

std::unique_ptr<support::RdmdProcess> Site::start(const std::vector<std::string> &arguments) const {
  std::vector<std::string> all{"--listen", "127.0.0.1:0",   "--plugin", support::in_build("lib/librdm.so"),
                               "--config", path("rdm.conf")};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return std::make_unique<support::RdmdProcess>(all);
}

std::size_t Site::files_left() const {
  const std::filesystem::directory_iterator entries(path("tmp")), end;
  return static_cast<std::size_t>(std::distance(entries, end));
}

std::size_t Site::processes_left() const {
  std::size_t count = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
    const std::string command_line = entry.path().string() + "/cmdline";
    if (support::file_exists(command_line) &&
        support::read_file(command_line).find(path("rdm.conf")) != std::string::npos)
      ++count;
  }
  return count;
}

}  // namespace rdm::bench
