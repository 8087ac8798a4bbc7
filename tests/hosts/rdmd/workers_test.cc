// SPDX-License-Identifier: MIT
/// Servers with worker processes: what ends, hangs, waits or is replaced, and what clients notice of it.

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/server_fixture.h"
#include "support/environment.h"

using namespace rdm;
using support::HttpClient;
using support::HttpResponse;

namespace {

class HostWorkers : public support::ServerTest {
 protected:
  /// start_workers runs the server with `count` workers and a directory of its own for temporary files.
  void start_workers(int count, std::vector<std::string> more = {}) {
    std::filesystem::create_directory(directory_.path("tmp"));
    const support::Environment temporary("TMPDIR", directory_.path("tmp").c_str());
    more.insert(more.end(), {"--workers", std::to_string(count)});
    start(more);
  }

  /// processes returns the children of the server with this name.
  std::vector<pid_t> processes(const std::string &name) const { return server_->children(name); }

  void kill_front() const { ::kill(server_->front(), SIGKILL); }

  std::string get_body(const std::string &target) const { return support::http_get(port_, target).body; }

  long inits() const {
    const std::string text = support::read_file(directory_.path("journal"));
    long count = 0;
    for (std::size_t at = 0; (at = text.find("init\n", at)) != std::string::npos; at += 5) ++count;
    return count;
  }

  /// files_left returns the entries of the directory for temporary files.
  long files_left() const {
    const std::filesystem::directory_iterator files(directory_.path("tmp"));
    return std::distance(files, std::filesystem::directory_iterator());
  }

  /// replace_config makes the plug-in fail with `text` from its next start on, or succeed if it is empty.
  void replace_config(const std::string &text) {
    directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n" +
                                     (text.empty() ? "" : "fail=\"" + text + "\"\n"));
  }
};

TEST_F(HostWorkers, ACrashCostsTheRequestThatTheWorkerHadAndNoOther) {
  start_workers(2);
  HttpClient other(port_);
  other.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  HttpClient unlucky(port_);
  unlucky.send(get("/rdm/crash"));
  const HttpResponse response = unlucky.receive();
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.field("retry-after"), "5");
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "");
  release();
  EXPECT_EQ(other.receive().body, "slow\n");
  EXPECT_TRUE(
      server_->await_error(") was killed by signal 11 (Segmentation fault) while it served \"GET /rdm/crash\" "
                           "(client 127.0.0.1, request " +
                           response.field("x-request-id") + ")\n"))
      << server_->errors();
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker").size() == 2 && inits() == 3; }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(files_left(), 0);
}

TEST_F(HostWorkers, ARequestThatHangsDelaysNoneOfThoseThatCameWithIt) {
  start_workers(2);
  HttpClient hanging(port_);
  std::vector<std::unique_ptr<HttpClient>> others;
  for (int i = 0; i < 16; ++i) others.push_back(std::make_unique<HttpClient>(port_));
  hanging.send(get(held()));
  for (const auto &other : others) other->send(get("/rdm/slow?5"));
  for (const auto &other : others) EXPECT_EQ(other->receive().body, "slow\n");
  release();
  EXPECT_EQ(hanging.receive().body, "slow\n");
}

TEST_F(HostWorkers, ARequestThatTakesTooLongEndsWithItsWorker) {
  start_workers(1, {"--service-timeout", "1"});
  HttpClient hanging(port_), waiting(port_);
  hanging.send(get("/rdm/slow?3600000"));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  waiting.send(get("/rdm/fast"));
  const HttpResponse response = hanging.receive();
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.field("retry-after"), "5");
  EXPECT_EQ(waiting.receive().body, "fast\n");
  EXPECT_TRUE(server_->await_error("a request took longer than the service timeout (client 127.0.0.1, request "));
  EXPECT_TRUE(server_->await_error(") was killed by signal 9 (Killed) while it served \"GET /rdm/slow\" (client "));
}

TEST_F(HostWorkers, AnIdleWorkerThatEndsCostsNothing) {
  start_workers(1);
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  ASSERT_EQ(processes("rdmd-worker").size(), 1u);
  const pid_t worker = processes("rdmd-worker").front();
  ::kill(worker, SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return ::kill(worker, 0) != 0; }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_TRUE(server_->await_error(") was killed by signal 9 (Killed)\n"));
}

TEST_F(HostWorkers, AWorkerThatCannotStartIsTriedAgainAfterAPause) {
  start_workers(2);
  replace_config("no stars");
  ::kill(processes("rdmd-worker").front(), SIGKILL);
  EXPECT_TRUE(server_->await_error("a worker could not be replaced: " + config_ + ": no stars\n"));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  replace_config("");
  EXPECT_TRUE(support::eventually([&] { return inits() == 3; }));
}

TEST_F(HostWorkers, AWorkerThatCannotOpenTheErrorLogEnds) {
  // Regression: the exception reached the master's code in the new process, which then ran as another master.
  std::filesystem::create_directory(directory_.path("logs"));
  start_workers(1, {"--error-log", directory_.path("logs/errors")});
  std::filesystem::rename(directory_.path("logs"), directory_.path("gone"));
  ::kill(processes("rdmd-worker").front(), SIGKILL);
  EXPECT_TRUE(server_->await_error("rdmd: " + directory_.path("logs/errors") + ": No such file or directory\n"));
  std::filesystem::rename(directory_.path("gone"), directory_.path("logs"));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_EQ(stop(), 0);
}

TEST_F(HostWorkers, AFullQueueAnswers503AndKeepsTheConnection) {
  start_workers(1, observed({"--queue-length", "1"}));
  HttpClient busy(port_), waiting(port_), refused(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  waiting.send(get("/rdm/fast"));
  EXPECT_TRUE(await_queued(1));
  refused.send(get("/rdm/fast"));
  const HttpResponse response = refused.receive();
  EXPECT_EQ(response.status, 503);
  EXPECT_EQ(response.body, "The server has as many requests as it can take.\n");
  EXPECT_EQ(response.field("retry-after"), "5");
  release();
  EXPECT_EQ(busy.receive().body, "slow\n");
  EXPECT_EQ(waiting.receive().body, "fast\n");
  refused.send(get("/rdm/fast"));
  EXPECT_EQ(refused.receive().body, "fast\n");
  EXPECT_TRUE(server_->await_error("503: the queue of requests is full (client 127.0.0.1, request "));
}

TEST_F(HostWorkers, ClientsThatHaveGoneMakeRoomInAFullQueue) {
  start_workers(1, observed({"--queue-length", "1"}));
  HttpClient busy(port_);
  begin_held(busy);
  HttpClient gone(port_);
  gone.send(get("/rdm/echo"));
  gone.finish_sending();
  EXPECT_TRUE(await_queued(1));
  HttpClient next(port_);
  next.send(get("/rdm/fast"));
  EXPECT_TRUE(gone.ended());
  release();
  EXPECT_EQ(next.receive().body, "fast\n");
  EXPECT_FALSE(called("type /rdm/echo"));
}

TEST_F(HostWorkers, ARequestThatWaitsTooLongIsAnswered503) {
  start_workers(1, {"--queue-time", "1"});
  HttpClient busy(port_), waiting(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  waiting.send(get("/rdm/echo"));
  const HttpResponse response = waiting.receive();
  EXPECT_EQ(response.status, 503);
  EXPECT_EQ(response.body, "The server is too busy to answer in time.\n");
  release();
  EXPECT_EQ(busy.receive().body, "slow\n");
  EXPECT_FALSE(called("type /rdm/echo"));
}

TEST_F(HostWorkers, HarvestsLeaveAWorkerToOtherRequests) {
  start_workers(2);
  std::vector<std::unique_ptr<HttpClient>> harvesters;
  for (int i = 0; i < 4; ++i) {
    harvesters.push_back(std::make_unique<HttpClient>(port_));
    harvesters.back()->send(get(held("released", "/rdm/rd-request")));
  }
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/rd-request"); }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  release();
  for (const auto &harvester : harvesters) EXPECT_EQ(harvester->receive().body, "slow\n");
}

TEST_F(HostWorkers, AReloadReplacesTheWorkersAndTouchesNoConnection) {
  start_workers(2);
  HttpClient kept(port_), busy(port_);
  kept.send(get("/rdm/fast"));
  EXPECT_EQ(kept.receive().body, "fast\n");
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  server_->signal(SIGHUP);
  EXPECT_TRUE(server_->await_error("] [info] rdmd: the workers of generation 2 serve\n")) << server_->errors();
  EXPECT_EQ(inits(), 4);
  release();
  EXPECT_EQ(busy.receive().body, "slow\n");
  kept.send(get("/rdm/fast"));
  EXPECT_EQ(kept.receive().body, "fast\n");
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker").size() == 2; }));
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(files_left(), 0);
}

TEST_F(HostWorkers, AReloadWithAMistakeSaysWhereAndKeepsTheWorkers) {
  start_workers(2);
  const std::vector<pid_t> before = processes("rdmd-worker");
  replace_config("The stars are wrong.");
  server_->signal(SIGHUP);
  EXPECT_TRUE(server_->await_error("] [error] rdmd: reload: " + config_ +
                                   ": The stars are wrong.; still serving with the former configuration\n"))
      << server_->errors();
  EXPECT_TRUE(server_->await_error(config_ + ":1: "));
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker") == before; }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  replace_config("");
  server_->signal(SIGHUP);
  EXPECT_TRUE(server_->await_error("] [info] rdmd: the workers of generation 3 serve\n")) << server_->errors();
}

TEST_F(HostWorkers, AReloadDuringTheStartIsMadeWhenTheServerIsReady) {
  // Regression: it was lost, although the workers may have read the configuration before it changed.
  const std::string config = directory_.write(
      "rdm.conf", "journal=\"" + directory_.path("journal") + "\"\nwait=\"" + directory_.path("released") + "\"\n");
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", config, "--workers", "1"});
  ASSERT_TRUE(support::eventually([&] { return support::file_exists(directory_.path("journal")); }));
  server.signal(SIGHUP);
  release();
  EXPECT_TRUE(server.await_error("the workers of generation 2 serve\n")) << server.errors();
}

TEST_F(HostWorkers, OnlyFourGenerationsLiveAtOnce) {
  start_workers(1);
  std::vector<std::unique_ptr<HttpClient>> busy;
  for (int generation = 1; generation <= 4; ++generation) {
    busy.push_back(std::make_unique<HttpClient>(port_));
    busy.back()->send(get(held(generation == 1 ? "first" : "others")));
    ASSERT_TRUE(support::eventually([&] {
      const std::string text = journal();
      std::ptrdiff_t calls = 0;
      for (std::size_t at = 0; (at = text.find("service /rdm/slow", at)) != std::string::npos; ++at) ++calls;
      return calls == generation;
    }));
    server_->signal(SIGHUP);
    if (generation < 4) {
      ASSERT_TRUE(server_->await_error("the workers of generation " + std::to_string(generation + 1) + " serve\n"));
    }
  }
  EXPECT_TRUE(server_->await_error("reload: waiting for the workers of former configurations to end\n"));
  EXPECT_LE(processes("rdmd-worker").size(), 4u);
  release("first");
  EXPECT_TRUE(server_->await_error("the workers of generation 5 serve\n")) << server_->errors();
  release("others");
  for (const auto &client : busy) EXPECT_EQ(client->receive().body, "slow\n");
}

TEST_F(HostWorkers, AFrontThatIsKilledIsReplacedAndNoWaitingClientIsRefused) {
  start_workers(2);
  kill_front();
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_TRUE(server_->await_error("the front process was killed by signal 9 (Killed); starting another\n"));
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker").size() == 2; }));
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(files_left(), 0);
}

TEST_F(HostWorkers, AFrontThatIsKilledWhileTheConfigurationIsWrongServesOnceItIsRight) {
  start_workers(2);
  replace_config("no stars");
  kill_front();
  EXPECT_TRUE(server_->await_error(": no stars; no worker serves\n")) << server_->errors();
  HttpClient waiting(port_);
  waiting.send(get("/rdm/fast"));
  EXPECT_TRUE(server_->await_error("a worker could not be replaced: "));
  replace_config("");
  EXPECT_EQ(waiting.receive().body, "fast\n");
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker").size() == 2; }));
}

TEST_F(HostWorkers, AReloadBetweenTwoFrontsReplacesTheWorkersThatWaitForTheNextOne) {
  // Regression: they stayed for ever.
  start_workers(2);
  // Ten fronts that end as soon as they are ready are replaced at once, and the others one in each second.
  int generation = 1;
  while (generation < 12) {
    EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
    kill_front();
    EXPECT_TRUE(server_->await_error("workers of generation " + std::to_string(++generation) + " serve\n"));
  }
  server_->signal(SIGHUP);
  EXPECT_TRUE(server_->await_error("the workers of generation 13 serve\n"));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-worker").size() == 2; }));
}

TEST_F(HostWorkers, AServerThatStopsRefusesNewClients) {
  // Regression: the master kept the listening sockets open; clients that came after the signal waited for its end.
  start_workers(1);
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  server_->signal(SIGTERM);
  EXPECT_TRUE(support::eventually([&] { return support::refuses(port_); }));
  release();
  EXPECT_EQ(busy.receive().body, "slow\n");
  busy.finish_sending();
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostWorkers, AWorkerThatCrashesWhileTheServerStopsShowsInTheExitStatus) {
  start_workers(1);
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  ASSERT_EQ(processes("rdmd-worker").size(), 1u);
  server_->signal(SIGTERM);
  EXPECT_TRUE(support::eventually([&] { return support::refuses(port_); }));
  ::kill(processes("rdmd-worker").front(), SIGABRT);
  EXPECT_EQ(busy.receive().status, 500);
  EXPECT_NE(server_->wait(), 0);
}

TEST_F(HostWorkers, WithoutItsMasterTheServerFinishesItsAnswersAndEnds) {
  start_workers(1);
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  ASSERT_TRUE(
      support::eventually([&] { return processes("rdmd-front").size() + processes("rdmd-worker").size() == 2; }));
  const std::vector<pid_t> front = processes("rdmd-front"), workers = processes("rdmd-worker");
  server_->signal(SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return processes("rdmd-front").empty(); }));
  release();
  EXPECT_EQ(server_->wait(), 128 + SIGKILL);
  EXPECT_EQ(busy.receive().body, "slow\n");
  for (const pid_t process : {front.front(), workers.front()})
    EXPECT_TRUE(support::eventually([&] { return ::kill(process, 0) != 0; })) << process;
}

TEST_F(HostWorkers, AWorkerThatHangsEndsSomeTimeAfterItsMaster) {
  start_workers(1, {"--shutdown-timeout", "0.2"});
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  ASSERT_EQ(processes("rdmd-worker").size(), 1u);
  const pid_t worker = processes("rdmd-worker").front();
  server_->signal(SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return ::kill(worker, 0) != 0; }));
  EXPECT_EQ(server_->wait(), 128 + SIGKILL);
}

TEST_F(HostWorkers, AWorkerThatHangsWithoutItsFrontIsKilledAfterTheServiceTimeout) {
  start_workers(1, {"--service-timeout", "1"});
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  ASSERT_EQ(processes("rdmd-worker").size(), 1u);
  const pid_t worker = processes("rdmd-worker").front();
  kill_front();
  EXPECT_TRUE(support::eventually([&] { return ::kill(worker, 0) != 0; }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
}

TEST_F(HostWorkers, AFrontThatHangsIsKilledWhenTheServerStops) {
  // Regression: the master waited for it for ever.
  start_workers(1, {"--shutdown-timeout", "0.2"});
  ::kill(server_->front(), SIGSTOP);
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("] [error] rdmd: the front process hangs: killing it\n"));
  EXPECT_EQ(server_->wait(), 1);
}

TEST_F(HostWorkers, AFurtherOrderToStopDoesNotPutOffTheEndOfAWorkerThatHangs) {
  // Regression: each order gave the worker the shutdown timeout again.
  start_workers(1, {"--shutdown-timeout", "2"});
  ASSERT_EQ(processes("rdmd-worker").size(), 1u);
  ::kill(processes("rdmd-worker").front(), SIGSTOP);
  const pid_t front = server_->front();
  server_->signal(SIGTERM);
  ASSERT_TRUE(support::eventually([&] { return ::kill(front, 0) != 0; }));
  EXPECT_TRUE(support::eventually([&] {
    server_->signal(SIGTERM);
    return server_->errors().find("the plug-in has not returned from its last call") != std::string::npos;
  }));
  EXPECT_EQ(server_->wait(), 1);
}

TEST_F(HostWorkers, TheProgramIsReplacedWithoutRefusingAClient) {
  start_workers(2);
  HttpClient busy(port_);
  busy.send(get(held()));
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  server_->signal(SIGUSR2);
  ASSERT_TRUE(server_->await_error(" has taken over\n")) << server_->errors();
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  release();
  EXPECT_EQ(busy.receive().body, "slow\n");
  const std::string log = server_->errors(), mark = "upgrade: process ";
  const pid_t successor = std::stoi(log.substr(log.find(mark) + mark.size()));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  ::kill(successor, SIGTERM);
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostWorkers, AnUpgradeDuringAnotherOneIsMadeWhenTheNewProgramHasTakenOver) {
  // Regression: the program after the next one took over, the next one ended before it was ready, and so the first one
  // continued beside the last.
  start_workers(1);
  directory_.write("rdm.conf",
                   "journal=\"" + directory_.path("journal") + "\"\nwait=\"" + directory_.path("released") + "\"\n");
  const auto upgraded = [this](const std::string &mark) {
    const std::string log = server_->errors();
    return std::stoi(log.substr(log.rfind(mark) + mark.size()));
  };
  server_->signal(SIGUSR2);
  ASSERT_TRUE(server_->await_error("upgrade: starting "));
  const pid_t next = upgraded("bin/rdmd (process ");
  // SIGUSR1 is read first, although it is sent last: when it has been obeyed, the other one is next.
  for (const int signal : {SIGUSR2, SIGUSR1}) ::kill(next, signal);
  ASSERT_TRUE(server_->await_error("SIGUSR1: logs reopened\n"));
  release();
  ASSERT_TRUE(server_->await_error("upgrade: process " + std::to_string(next) + " has taken over\n"));
  ASSERT_TRUE(support::eventually([&] { return upgraded("upgrade: process ") != next; }));
  const std::string log = server_->errors();
  EXPECT_LT(log.find("listening on", log.find("upgrade: starting ")), log.rfind("upgrade: starting ")) << log;
  ::kill(upgraded("upgrade: process "), SIGTERM);
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostWorkers, AProgramThatCannotStartReplacesNothing) {
  start_workers(1);
  replace_config("no stars");
  server_->signal(SIGUSR2);
  EXPECT_TRUE(server_->await_error("upgrade: the new program ended before it was ready; the old one continues\n"));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
}

TEST_F(HostWorkers, AStartThatFailsSaysWhyAndListensNowhere) {
  replace_config("The stars are wrong.");
  const std::string config = directory_.path("rdm.conf");
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", config, "--workers", "2"});
  EXPECT_EQ(server.wait(), 1);
  EXPECT_NE(server.errors().find(config + ": The stars are wrong.\n"), std::string::npos) << server.errors();
  EXPECT_EQ(server.errors().find("listening on"), std::string::npos);
}

TEST_F(HostWorkers, AStartWhoseFrontCannotOpenItsLogsFailsAndAnnouncesNothing) {
  std::filesystem::create_directory(directory_.path("logs"));
  const std::string access = directory_.path("logs/access");
  config_ = directory_.write(
      "rdm.conf", "journal=\"" + directory_.path("journal") + "\"\nwait=\"" + directory_.path("released") + "\"\n");
  support::RdmdProcess server(
      {"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", config_, "--access-log", access, "--workers", "1"});
  ASSERT_TRUE(support::eventually([&] { return support::file_exists(directory_.path("journal")); }));
  std::filesystem::rename(directory_.path("logs"), directory_.path("gone"));
  release();
  EXPECT_EQ(server.wait(), 1);
  EXPECT_NE(server.errors().find(access + ": No such file or directory\n"), std::string::npos) << server.errors();
  EXPECT_NE(server.errors().find("rdmd: the front process exited with status 1\n"), std::string::npos);
  EXPECT_EQ(server.errors().find("listening on"), std::string::npos);
}

TEST_F(HostWorkers, AnswersOfAnySizeAndFormCrossTheProcessBoundary) {
  start_workers(2);
  for (const std::size_t size : {0, 1, 65'535, 65'536, 65'537, 1'000'000, 5'000'000})
    EXPECT_EQ(get_body("/rdm/big?" + std::to_string(size)), pattern(size)) << size;
  const std::string content(300'000, 'x'), file = directory_.write("file", content);
  EXPECT_EQ(get_body("/rdm/shared-file?" + file), content);
  EXPECT_EQ(get_body("/rdm/file?" + file), content);
  EXPECT_FALSE(support::file_exists(file));
  EXPECT_EQ(get_body("/rdm/many-files?" + directory_.write("part", "0123456789")).size(), 2000u);
}

}  // namespace
