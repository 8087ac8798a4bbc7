// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>
#include <string>

#include "nginx.h"
#include "speed/allocation_count.h"
#include "speed/reader.h"
#include "speed/request_load.h"
#include "speed/sections.h"

namespace rdm::bench {
namespace {

constexpr std::size_t connections = 32;
constexpr std::chrono::milliseconds measured{300};

/// cost_of_requests returns the cost of one of many requests at once.
Cost cost_of_requests(pid_t server, int port, const std::string &target) {
  std::size_t answers = 0;
  const Cost all =
      cost_of_single_work(server, [&] { answers = ask_again_and_again(port, target, connections, measured); });
  return {all.seconds / static_cast<double>(answers), all.cpu / static_cast<double>(answers)};
}

/// Server is one that is asked, and what for.
struct Server {
  std::string name;
  pid_t process;
  int port;
  std::string target;
};

/// allocations_of_status returns how often the server allocates for a status request; nothing if it cannot be counted.
std::optional<double> allocations_of_status(const Stage &stage) {
  if (!AllocationCount::possible()) return {};
  constexpr int requests = 1000;
  const AllocationCount count;
  const auto server = stage.start_server(stage.options().workers);
  Reader reader(server->port());
  reader.connect();
  const auto ask = [&] {
    for (int i = 0; i < requests; ++i) reader.ask(status_target);
  };
  ask();
  const std::uint64_t before = count.value();
  ask();
  return static_cast<double>(count.value() - before) / requests;
}

Row row_of_allocations(const Stage &stage) {
  const std::optional<double> each = allocations_of_status(stage);
  return {"status, allocations a request", each ? number(*each) : "not counted", {}, {}, {}, {at_most(each, 40, "")}};
}

class Requests {
 public:
  explicit Requests(const Stage &stage) : stage_(stage) {
    if (Nginx::installed()) start_nginx();
    add({"status", stage.server().pid(), stage.port(), status_target});
    if (stage.options().wants("one"))
      add({"one", stage.server().pid(), stage.port(), std::string(harvest_target) + "&view-hits=1"});
    if (stage.options().wants("status")) start_workers();
    rounds_.run(stage.options().rounds);
  }

  std::vector<Row> rows(Sizes &sizes) const {
    std::vector<Row> all;
    if (stage_.options().wants("one")) all.push_back(row_of_one(sizes));
    if (stage_.options().wants("status")) {
      add_rows("status", "status",
               {at_most(*rounds_.cpu("status") * 1e6, 20, " us"),
                at_most(rounds_.ratio("status", "nginx", &Cost::cpu), 1.2, " x nginx")},
               all);
      all.push_back(row_of_allocations(stage_));
      add_rows("status, two workers", "two workers", {}, all);
    }
    return all;
  }

 private:
  void add(const Server &server) {
    rounds_.add(server.name, [server] { return cost_of_requests(server.process, server.port, server.target); });
  }

  void start_nginx() {
    nginx_.emplace("1");
    Reader(stage_.port()).save(status_target, nginx_->file("status"));
    add({"nginx", nginx_->pid(), nginx_->port(), "/status"});
  }

  void start_workers() {
    workers_ = stage_.start_server("2");
    const int port = workers_->port();
    add({"two workers", workers_->pid(), port, status_target});
  }

  static std::string rate(double seconds) { return count(static_cast<std::uint64_t>(1 / seconds)) + "/s"; }

  /// rate_ratio returns the rate of a variant relative to that of a peer.
  std::optional<double> rate_ratio(const std::string &variant, const std::string &peer) const {
    return rounds_.ratio(peer, variant);
  }

  Row row_of_one(Sizes &sizes) const {
    const double seconds = *rounds_.seconds("one");
    const std::optional<double> of_status = rate_ratio("one", "status");
    Row row{"one RD, rate",
            rate(seconds) + ", CPU " + duration(*rounds_.cpu("one")),
            {},
            rate_ratio("one", "nginx"),
            {},
            {}};
    if (of_status) row.measured += ", " + number(*of_status) + " of status";
    row.limits.push_back(at_least(of_status, 0.75, " of status"));
    if (const auto reference = sizes.against_reference("one", stage_.records(), 1 / seconds))
      row.limits.push_back(at_least(1 / seconds / *reference, 0.9, " of the rate at 20,000"));
    return row;
  }

  void add_rows(const std::string &title, const std::string &name, const std::vector<Limit> &limits,
                std::vector<Row> &all) const {
    all.push_back({title + ", rate", rate(*rounds_.seconds(name)), {}, rate_ratio(name, "nginx"), {}, {}});
    all.push_back({title + ", CPU a request",
                   duration(*rounds_.cpu(name)),
                   {},
                   rounds_.ratio(name, "nginx", &Cost::cpu),
                   {},
                   limits});
  }

  const Stage &stage_;
  std::optional<Nginx> nginx_;
  std::unique_ptr<support::RdmdProcess> workers_;
  Rounds rounds_;
};

}  // namespace

std::vector<Row> request_rows(const Stage &stage, Sizes &sizes) {
  if (!stage.options().wants("one") && !stage.options().wants("status")) return {};
  return Requests(stage).rows(sizes);
}

}  // namespace rdm::bench
