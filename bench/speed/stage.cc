// SPDX-License-Identifier: MIT
#include "speed/stage.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "dba/index_format.h"
#include "speed/processes.h"

namespace rdm::bench {
namespace {

using Clock = std::chrono::steady_clock;

/// What changed less than a tenth of a second ago is read anew for each request.
constexpr std::chrono::milliseconds settling{150};

std::size_t percent_of(std::size_t records, std::size_t percent) { return records * percent / 100; }

std::string http_time(std::time_t time) {
  char text[64];
  std::tm parts{};
  std::strftime(text, sizeof text, "%a,+%d+%b+%Y+%H:%M:%S+GMT", ::gmtime_r(&time, &parts));
  return text;
}

Cost cost_of_repeated_work(pid_t server, const std::function<void()> &work, std::chrono::milliseconds least) {
  const std::vector<pid_t> processes = processes_of(server);
  const double cpu = cpu_time(processes);
  const auto begin = Clock::now();
  std::chrono::duration<double> time{};
  double count = 0;
  do {
    work();
    ++count;
    time = Clock::now() - begin;
  } while (time < least);
  return {time.count() / count, (cpu_time(processes) - cpu) / count};
}

}  // namespace

Stage::Stage(std::size_t records, const Options &options)
    : options_(options),
      records_(records),
      newest_(percent_of(records, 1)),
      site_(records, {records - newest_ - percent_of(records, 9), percent_of(records, 9), 1}),
      raw_(site_.database(), site_.database() + ".idx"),
      server_(start_server(options.workers)),
      port_(server_->port()) {}

std::unique_ptr<support::RdmdProcess> Stage::start_server(const std::string &workers) const {
  return site_.start({"--workers", workers, "--spill-limit", "0", "--max-connections-per-address", "0",
                      "--write-timeout", "3600", "--min-send-rate", "0", "--queue-time", "600"});
}

std::string Stage::since_target() const {
  const std::string index = support::read_file(site_.database() + ".idx");
  const auto first = index_format::entry_at(index, records_ - newest_);
  return "/rdm/rd-request?ql=gatherer&scope=since+" + http_time(static_cast<std::time_t>(first.time));
}

void Stage::touch() const {
  for (const std::string &path : {site_.database(), site_.database() + ".idx"})
    if (::utimensat(AT_FDCWD, path.c_str(), nullptr, 0) != 0) fail("cannot touch " + path);
  std::this_thread::sleep_for(settling);
}

Cost cost_of_work(pid_t server, const std::function<void()> &work) {
  return cost_of_repeated_work(server, work, std::chrono::milliseconds(20));
}

Cost cost_of_single_work(pid_t server, const std::function<void()> &work) {
  return cost_of_repeated_work(server, work, std::chrono::milliseconds(0));
}

}  // namespace rdm::bench
