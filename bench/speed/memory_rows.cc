// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "speed/processes.h"
#include "speed/reader.h"
#include "speed/sections.h"
#include "speed/stalled_readers.h"

namespace rdm::bench {
namespace {

constexpr double mib = 1024 * 1024;

/// peak_memory returns the most memory that a server holds while the work is done, as seen every five milliseconds.
std::uint64_t peak_memory(const support::RdmdProcess &server, const std::function<void()> &work) {
  std::atomic<bool> ends = false;
  std::uint64_t peak = 0;
  {
    std::jthread watch([&] {
      for (; !ends; std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        peak = std::max(peak, own_memory(processes_of(server.pid())));
    });
    work();
    ends = true;
  }
  return std::max(peak, own_memory(processes_of(server.pid())));
}

/// limit_of returns the bytes that harvests of a catalog may take.
double limit_of(std::size_t records) {
  constexpr double each_further = 16;
  return 16 * mib + (records > Sizes::reference ? each_further * static_cast<double>(records - Sizes::reference) : 0);
}

Row row_of_harvests(const Stage &stage) {
  const auto server = stage.start_server(stage.options().workers);
  Reader reader(server->port());
  reader.connect();
  reader.ask(status_target);
  const std::uint64_t idle = own_memory(processes_of(server->pid()));
  const std::uint64_t peak = peak_memory(*server, [&] {
    for (const std::string &target : {std::string(harvest_target), std::string(harvest_target),
                                      std::string(harvest_target) + "&view-attributes=title"})
      reader.ask(target);
  });
  const double over = static_cast<double>(peak) - static_cast<double>(idle), limit = limit_of(stage.records());
  return {"memory of harvests over idle", bytes(over), {}, {}, {}, {{"at most " + bytes(limit), over <= limit}}};
}

/// affordable returns how many answers of this size fit into half of the free space for temporary files, at most
/// `most`.
std::size_t affordable(const Stage &stage, std::uint64_t answer, std::size_t most) {
  const std::uint64_t room = std::filesystem::space(stage.site().path("tmp")).available / 2;
  return std::clamp<std::size_t>(room / std::max<std::uint64_t>(answer, 1), 1, most);
}

/// Held is what a server holds.
struct Held {
  std::uint64_t memory, files;
  bool operator==(const Held &) const = default;
};

Held held_by(const support::RdmdProcess &server) {
  const std::vector<pid_t> processes = processes_of(server.pid());
  return {own_memory(processes), unlinked_bytes(processes)};
}

/// settled returns what a server holds when it has been the same for half a second.
Held settled(const support::RdmdProcess &server) {
  for (Held last = held_by(server);;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const Held now = held_by(server);
    if (now == last) return now;
    last = now;
  }
}

/// held_beside returns what a server holds beside clients that read nothing. They and their answers are gone
/// afterwards.
Held held_beside(const support::RdmdProcess &server, int port, std::size_t readers, std::uint64_t files_before) {
  constexpr std::chrono::seconds patience{1800};
  Held held{};
  {
    const StalledReaders stalled(port, harvest_target, readers);
    stalled.await_answers(patience);
    held = settled(server);
  }
  support::eventually([&] { return held_by(server).files <= files_before; }, patience);
  return held;
}

std::vector<Row> rows_of_stalled(const Stage &stage) {
  const auto server = stage.start_server(stage.options().workers);
  const int port = server->port();
  Reader reader(port);
  reader.connect();
  const std::size_t readers = affordable(stage, reader.ask(harvest_target), stage.options().readers);
  const Held before = settled(*server), beside = held_beside(*server, port, readers, before.files);
  const double files = static_cast<double>(beside.files) - static_cast<double>(before.files);
  const double each =
      (static_cast<double>(beside.memory) - static_cast<double>(before.memory)) / static_cast<double>(readers);
  const std::string title = count(readers) + " stalled readers of a harvest, ";
  return {{title + "files", bytes(files), {}, {}, {}, {{"less than 1 MiB", files < mib}}},
          {title + "memory each", bytes(each), {}, {}, {}, {{"at most 64 KiB", each <= 64 * 1024.0}}}};
}

}  // namespace

std::vector<Row> memory_rows(const Stage &stage) {
  std::vector<Row> all;
  if (stage.options().wants("memory")) all.push_back(row_of_harvests(stage));
  if (stage.options().wants("stalled"))
    for (Row &row : rows_of_stalled(stage)) all.push_back(std::move(row));
  return all;
}

}  // namespace rdm::bench
