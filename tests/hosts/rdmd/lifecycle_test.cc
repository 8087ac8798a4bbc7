// SPDX-License-Identifier: MIT
/// Start and end of the server.

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "hosts/rdmd/server_fixture.h"
#include "qxapi/guard.h"
#include "support/directories.h"
#include "support/environment.h"
#include "support/process.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::RdmdProcess;
using support::refuses;

/// is_bound returns true if a socket is bound to a port of 127.0.0.1.
bool is_bound(int port) {
  const HostFileGuard socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0;
}

class HostLifecycle : public support::ServerTest {
 protected:
  /// refused runs a server that does not start, expects this exit status, and returns its error output.
  std::string refused(const std::vector<std::string> &arguments, int status = 1) {
    RdmdProcess server(arguments);
    EXPECT_EQ(server.wait(), status);
    return server.errors();
  }
  /// arguments returns those of a server with a free port and `more` of them.
  std::vector<std::string> arguments(const std::vector<std::string> &more, const std::string &text = "") {
    std::vector<std::string> all = {"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", config(text)};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  /// ask_for_large_answer makes a client that has begun to receive an answer and reads no further.
  std::unique_ptr<HttpClient> ask_for_large_answer() const {
    auto client = std::make_unique<HttpClient>(port_, false, 65536);
    client->send(get("/rdm/big?12000000"));
    EXPECT_TRUE(client->readable(support::timeout));
    return client;
  }
  std::string config(const std::string &text = "") {
    return directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n" + text);
  }
};

TEST_F(HostLifecycle, LogsTheListeningAddress) {
  start();
  EXPECT_TRUE(server_->await_error("rdmd: listening on 127.0.0.1:" + std::to_string(port_) + "\n"));
}

TEST_F(HostLifecycle, EndsOnTermAndOnInterruptWithItsExitsInOrder) {
  for (const int signal : {SIGTERM, SIGINT}) {
    std::filesystem::remove(directory_.path("journal"));
    start_single();
    server_->signal(signal);
    EXPECT_EQ(server_->wait(), 0);
    EXPECT_EQ(journal(), "init\nexit first\nexit second\nexit third\n");
    EXPECT_TRUE(std::regex_search(server_->errors(),
                                  std::regex(R"(\] \[info\] rdmd: stopping\n.*\] \[info\] rdmd: stopped\n$)")))
        << server_->errors();
  }
}

TEST_F(HostLifecycle, SignalsBeforeTheServerIsReadyDoNotEndIt) {
  // Regression: SIGHUP and SIGUSR1 ended a server that was not ready for them.
  const std::string options = directory_.path("options");
  for (const char *const workers : {"0", "1"}) {
    ASSERT_EQ(::mkfifo(options.c_str(), 0600), 0);
    RdmdProcess server(arguments({"--options", options, "--workers", workers}));
    {
      // The server reads its options once they are written.
      std::ofstream writer(options);
      for (const int signal : {SIGHUP, SIGUSR1}) server.signal(signal);
      writer << "threads = 1\n";
    }
    EXPECT_GT(server.port(), 0);
    std::filesystem::remove(options);
  }
}

TEST_F(HostLifecycle, EndsWhileThePlugInStarts) {
  // Regression: without worker processes, SIGTERM waited until the plug-in had started.
  for (const auto &[workers, status] : {std::pair{"0", 128 + SIGTERM}, {"1", 0}}) {
    std::filesystem::remove(directory_.path("journal"));
    RdmdProcess server(arguments({"--workers", workers}, "wait=\"" + directory_.path("never") + "\"\n"));
    ASSERT_TRUE(support::eventually([this] { return support::file_exists(directory_.path("journal")); }));
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(), status);
  }
}

TEST_F(HostLifecycle, ACallerThatIgnoresTheEndsOfItsChildrenChangesNothing) {
  // Regression: the server inherited that, learnt of the end of no process and did not end either.
  std::signal(SIGCHLD, SIG_IGN);
  RdmdProcess server(arguments({"--workers", "1"}));
  std::signal(SIGCHLD, SIG_DFL);
  ASSERT_GT(server.port(), 0);
  ASSERT_EQ(server.children("rdmd-worker").size(), 1U);
  ::kill(server.children("rdmd-worker").front(), SIGKILL);
  EXPECT_TRUE(server.await_error(") was killed by signal 9 (Killed)\n"));
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
}

TEST_F(HostLifecycle, EndsAlthoughAnotherSignalComesAtTheSameTime) {
  // Regression: a signal in the queue behind SIGTERM made the server wait for the next one, for ever.
  for (int trial = 0; trial < 10; ++trial) {
    start();
    for (const int number : {SIGUSR1, SIGHUP, SIGTERM, SIGHUP}) server_->signal(number);
    EXPECT_EQ(server_->wait(), 0);
  }
}

TEST_F(HostLifecycle, FinishesALargeAnswerBeforeItEnds) {
  start();
  const auto client = ask_for_large_answer();
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("stopping"));
  EXPECT_EQ(client->receive().body, pattern(12'000'000));
  EXPECT_TRUE(client->ended());
  client->finish_sending();
  EXPECT_EQ(server_->wait(), 0);
  EXPECT_NE(journal().find("exit third"), std::string::npos);
}

TEST_F(HostLifecycle, FinishesARequestBegunAndThenCloses) {
  start();
  HttpClient client(port_);
  client.send("POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\nha");
  HttpClient other(port_);
  other.send("GET /rdm/fa");
  HttpClient idle(port_);
  idle.send("GET /rdm/fast HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(idle.receive().body, "fast\n");
  EXPECT_TRUE(client.await_read());
  EXPECT_TRUE(other.await_read());
  server_->signal(SIGTERM);
  EXPECT_TRUE(idle.ended());  // when the server stops; its master has said so before
  client.send("lf");
  other.send("st HTTP/1.1\r\nHost: h\r\n\r\n");
  const auto response = client.receive();
  EXPECT_NE(response.body.find("body half[0]\n"), std::string::npos);
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(other.receive().body, "fast\n");
  EXPECT_TRUE(client.ended());
  client.finish_sending();
  other.finish_sending();
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostLifecycle, AnswersAFirstRequestThatArrivesWithTheOrderToStop) {
  start(observed());
  HttpClient client(port_);
  ASSERT_TRUE(await_metric("rdmd_connections{state=\"idle\"} 1"));
  // The front finds both when it continues.
  ::kill(server_->front(), SIGSTOP);
  client.send(get("/rdm/fast"));
  server_->signal(SIGTERM);
  ::kill(server_->front(), SIGCONT);
  EXPECT_EQ(client.receive().body, "fast\n");
  client.finish_sending();
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostLifecycle, AnswersFurtherRequestsThatArriveBeforeTheOrderToStop) {
  start();
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(std::make_unique<HttpClient>(port_));
    clients.back()->send(get("/rdm/fast"));
    EXPECT_EQ(clients.back()->receive().body, "fast\n");
  }
  // The front finds both when it continues.
  const pid_t front = server_->front();
  ::kill(front, SIGSTOP);
  for (const auto &client : clients) client->send(get("/rdm/fast"));
  server_->signal(SIGTERM);
  ::kill(front, SIGCONT);
  for (const auto &client : clients) {
    EXPECT_EQ(client->receive().body, "fast\n");
    client->finish_sending();
  }
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostLifecycle, AnswersClientsThatAreNotAcceptedYetWhenTheOrderToStopComes) {
  start();
  const pid_t front = server_->front();
  ::kill(front, SIGSTOP);
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (int i = 0; i < 16; ++i) {
    clients.push_back(std::make_unique<HttpClient>(port_));
    clients.back()->send(get("/rdm/fast"));
  }
  server_->signal(SIGTERM);
  ::kill(front, SIGCONT);
  for (const auto &client : clients) {
    EXPECT_EQ(client->receive().body, "fast\n");
    client->finish_sending();
  }
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostLifecycle, ClosesIdleConnectionsAtOnce) {
  start();
  HttpClient client(port_), silent(port_);
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(server_->errors().find("open connections"), std::string::npos) << "the shutdown timeout closed them";
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(silent.ended());
}

TEST_F(HostLifecycle, AConnectionWithNothingButEmptyLinesIsIdle) {
  start();
  HttpClient client(port_), half_a_line(port_);
  for (HttpClient *each : {&client, &half_a_line}) {
    each->send(get("/rdm/fast") + "\r\n\r" + (each == &client ? "\n" : ""));
    EXPECT_EQ(each->receive().body, "fast\n");
  }
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(half_a_line.ended());
}

TEST_F(HostLifecycle, AcceptsNoClientAfterTheSignal) {
  start();
  HttpClient client(port_);
  client.send(get(held()));
  EXPECT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("stopping"));
  EXPECT_TRUE(support::eventually([this] { return refuses(port_); }));
  release();
  EXPECT_EQ(client.receive().body, "slow\n");
  client.finish_sending();
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostLifecycle, ClosesConnectionsAtTheShutdownTimeout) {
  start_single({"--shutdown-timeout", "0.3"});
  const auto client = ask_for_large_answer();
  EXPECT_EQ(stop(), 0);
  EXPECT_NE(server_->errors().find("[warning] rdmd: closing 1 open connections\n"), std::string::npos);
  EXPECT_NE(journal().find("exit first\nexit second\nexit third\n"), std::string::npos);
  EXPECT_LT(client->receive().body.size(), 12'000'000u);
}

TEST_F(HostLifecycle, ASecondSignalCutsOffAtOnce) {
  start();
  const auto client = ask_for_large_answer();
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("stopping"));
  EXPECT_EQ(stop(), 0);
  EXPECT_NE(journal().find("exit third\n"), std::string::npos);
}

TEST_F(HostLifecycle, WaitsForTheCallThatRunsBeforeTheExits) {
  start_single({"--shutdown-timeout", "2"});
  HttpClient client(port_);
  client.send(get(held()));
  EXPECT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("closing 1 open connections"));
  release();
  EXPECT_EQ(server_->wait(), 0);
  EXPECT_NE(journal().find("log /rdm/slow\nexit first\n"), std::string::npos) << journal();
}

TEST_F(HostLifecycle, APluginThatDoesNotReturnDoesNotKeepTheServer) {
  start_single({"--shutdown-timeout", "0.1"});
  HttpClient client(port_);
  client.send(get("/rdm/slow?3600000"));
  EXPECT_TRUE(support::eventually([&] { return called("service /rdm/slow"); }));
  EXPECT_EQ(stop(), 1);
  EXPECT_NE(
      server_->errors().find("the plug-in has not returned from its last call; exiting without its exit functions"),
      std::string::npos);
  EXPECT_EQ(journal().find("exit"), std::string::npos);
}

TEST_F(HostLifecycle, SignalsReopenTheLogsOfTheServerAndOfThePlugin) {
  // Regression: the signal sent by log rotation ended the server, and the plug-in's logs continued in the renamed
  // files.
  const bool in_process = support::tested_workers() == "0";
  const struct {
    int signal;
    const char *line;
  } cases[] = {
      {SIGUSR1, "] [info] rdmd: SIGUSR1: logs reopened\n"},
      {SIGHUP, in_process ? "] [info] rdmd: SIGHUP: logs reopened; without worker processes the configuration is "
                            "read only at start-up\n"
                          : "] [info] rdmd: the workers of generation 2 serve\n"}};
  for (const auto &row : cases) {
    const std::string place = directory_.path("logs" + std::to_string(row.signal));
    std::filesystem::create_directory(place);
    const auto log = [&](const char *name) { return place + "/" + name; };
    RdmdProcess server(
        arguments({"--error-log", log("errors"), "--access-log", log("access")}, "log=\"" + log("plugin") + "\"\n"));
    const int port = server.port();
    support::http_get(port, "/rdm/report");
    const auto holds = [&](const char *name, const std::string &text) {
      return support::file_exists(log(name)) && support::read_file(log(name)).find(text) != std::string::npos;
    };
    EXPECT_TRUE(support::eventually([&] { return holds("access", "/rdm/report"); }));
    for (const char *name : {"errors", "access", "plugin"}) std::filesystem::rename(log(name), log(name) + ".1");
    server.signal(row.signal);
    EXPECT_TRUE(support::eventually([&] { return holds("errors", row.line); }));
    support::http_get(port, "/rdm/report");
    EXPECT_TRUE(support::eventually([&] { return holds("access", "/rdm/report"); }));
    EXPECT_EQ(support::read_file(log("plugin")), "/rdm/report\n");
    EXPECT_EQ(support::read_file(log("plugin.1")), "/rdm/report\n");
    EXPECT_TRUE(holds("errors", "test-plugin: a"));
    EXPECT_TRUE(holds("errors.1", "] [info] rdmd: listening on 127.0.0.1:"));
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_TRUE(holds("errors", "] [info] rdmd: stopped\n"));
  }
}

TEST_F(HostLifecycle, ASignalToReopenDoesNotEndAServerThatStarts) {
  RdmdProcess server(arguments({}, "wait=\"" + directory_.path("go") + "\"\n"));
  EXPECT_TRUE(support::eventually([this] { return support::file_exists(directory_.path("journal")); }));
  server.signal(SIGUSR1);
  server.signal(SIGHUP);
  directory_.write("go", "");
  EXPECT_EQ(support::http_get(server.port(), "/rdm/fast").body, "fast\n");
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
}

TEST_F(HostLifecycle, ASignalToUpgradeIsOnlyLoggedWithoutWorkers) {
  RdmdProcess server(arguments({"--workers", "0"}));
  const int port = server.port();
  server.signal(SIGUSR2);
  EXPECT_TRUE(server.await_error(
      "] [warning] rdmd: SIGUSR2: ignored: without worker processes, only a restart replaces the program\n"));
  EXPECT_EQ(support::http_get(port, "/rdm/fast").body, "fast\n");
}

TEST_F(HostLifecycle, LogsWithoutAReaderDelayNoAnswerAndNoEnd) {
  // Regression: a full pipe as any of the logs blocked the service.
  std::vector<HostFileGuard> readers;
  for (const char *name : {"out", "errors", "error-log", "access-log", "plugin-log"}) {
    ASSERT_EQ(::mkfifo(directory_.path(name).c_str(), 0600), 0);
    readers.emplace_back(::open(directory_.path(name).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  }
  const support::ReservedPort reserved;
  const int port = reserved.number();
  const std::string conf = config("log=\"" + directory_.path("plugin-log") + "\"\n");
  const pid_t server =
      support::start({support::in_build("bin/rdmd"), "--listen", reserved.address(), "--plugin", plugin(), "--config",
                      conf, "--error-log", directory_.path("error-log"), "--access-log", directory_.path("access-log")},
                     "/dev/null", directory_.path("out"), directory_.path("errors"));
  EXPECT_TRUE(support::eventually([&] { return !refuses(port); }));
  const std::string long_path = "/rdm/" + std::string(7000, 'x');
  HttpClient client(port);
  for (int i = 0; i < 200; ++i)
    for (const std::string &target : {std::string("/rdm/report"), std::string("/rdm/print?8000"), long_path}) {
      client.send(get(target));
      ASSERT_EQ(client.receive().status, 200) << target << " " << i;
    }
  ::kill(server, SIGTERM);
  EXPECT_EQ(support::wait_for(server), 0);
  EXPECT_NE(journal().find("exit third\n"), std::string::npos);
}

/// dropped_lines adds up the dropped lines of the access log that the error log reports.
long dropped_lines(const std::string &errors) {
  static const std::regex notice("\\[warning\\] rdmd: write the access log: ([0-9]+) lines? dropped\n");
  long lines = 0;
  for (auto found = std::sregex_iterator(errors.begin(), errors.end(), notice); found != std::sregex_iterator();
       ++found)
    lines += std::stol((*found)[1]);
  return lines;
}

TEST_F(HostLifecycle, TheErrorLogCountsTheDroppedLinesOfTheAccessLog) {
  ASSERT_EQ(::mkfifo(directory_.path("pipe").c_str(), 0600), 0);
  RdmdProcess server(arguments({"--access-log", directory_.path("pipe")}));
  HttpClient client(server.port());
  const std::string long_path = "/rdm/" + std::string(8000, 'x');
  for (int i = 0; i < 200; ++i) {
    client.send(get(long_path));
    ASSERT_EQ(client.receive().status, 200);
  }
  const HostFileGuard reader(::open(directory_.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  std::string text;
  char block[65536];
  EXPECT_TRUE(support::eventually([&] {
    for (ssize_t got = 0; (got = ::read(reader.get(), block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(got));
    return std::count(text.begin(), text.end(), '\n') + dropped_lines(server.errors()) == 200;
  })) << std::count(text.begin(), text.end(), '\n')
      << " written\n"
      << server.errors();
}

TEST_F(HostLifecycle, TheErrorLogSaysAtOnceThatTheAccessLogTakesNothing) {
  // Regression: the dropped lines were reported only when the server stopped.
  RdmdProcess server(arguments({"--access-log", "/dev/full"}));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(support::http_get(server.port(), "/rdm/fast").status, 200);
  EXPECT_TRUE(server.await_error("] [warning] rdmd: write the access log: 1 line dropped\n"));
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(dropped_lines(server.errors()), 5) << server.errors();
}

TEST_F(HostLifecycle, AnErrorLogThatTakesNothingKeepsNoClientWaiting) {
  RdmdProcess server(arguments({"--access-log", "/dev/full", "--error-log", "/dev/full"}));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(support::http_get(server.port(), "/rdm/report").status, 200);
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
}

TEST_F(HostLifecycle, AStartRemovesTheTemporaryFilesOfServersThatWereKilled) {
  const std::string place = directory_.path("tmp"), left = "tmp/csio0123456789abcdef00112233445566ff";
  std::filesystem::create_directory(place);
  const support::Environment directory("TMPDIR", place.c_str());
  directory_.write(left, "half an answer");
  directory_.write("tmp/notes", "the operator's own");
  const std::string told = "[info] rdmd: removed 1 temporary files of killed processes: " + place + "\n";
  start();
  EXPECT_TRUE(server_->await_error(told));
  EXPECT_FALSE(support::file_exists(directory_.path(left)));
  EXPECT_TRUE(support::file_exists(directory_.path("tmp/notes")));
  EXPECT_EQ(stop(), 0);
}

TEST_F(HostLifecycle, CommandsOfThePluginInheritNoDescriptor) {
  // Regression: a command that outlived the server kept its listening socket.
  std::vector<std::string> inherited;
  RdmdProcess server(arguments({"--access-log", directory_.path("access"), "--error-log", directory_.path("errors")},
                               "log=\"" + directory_.path("plugin-log") + "\"\n"));
  HttpClient client(server.port());
  client.send(get("/rdm/fast") + get("/rdm/slow?300"));
  EXPECT_EQ(client.receive().body, "fast\n");
  const std::string process = "/proc/" + std::to_string(server.pid()) + "/";
  int seen = 0;
  for (const auto &entry : std::filesystem::directory_iterator(process + "fdinfo")) {
    const std::string number = entry.path().filename(), name = "flags:\t";
    // The server may have closed the descriptor meanwhile.
    std::ifstream file(entry.path());
    const std::string info(std::istreambuf_iterator<char>(file), {});
    if (std::stoi(number) <= STDERR_FILENO || info.empty()) continue;
    ++seen;
    const unsigned long flags = std::strtoul(info.c_str() + info.find(name) + name.size(), nullptr, 8);
    std::error_code gone;
    if ((flags & O_CLOEXEC) == 0) inherited.push_back(std::filesystem::read_symlink(process + "fd/" + number, gone));
  }
  EXPECT_GE(seen, 5);
  EXPECT_EQ(inherited, std::vector<std::string>{});
}

TEST_F(HostLifecycle, ALogThatCannotBeReopenedContinuesInTheOldFile) {
  std::filesystem::create_directory(directory_.path("logs"));
  RdmdProcess server(
      arguments({"--error-log", directory_.path("logs/errors"), "--access-log", directory_.path("logs/access")}));
  const int port = server.port();
  support::http_get(port, "/rdm/echo");  // by now every process has opened its logs
  std::filesystem::rename(directory_.path("logs"), directory_.path("old"));
  server.signal(SIGHUP);
  const auto old_log = [this](const char *name) { return support::read_file(directory_.path("old/") + name); };
  for (const char *log : {"error", "access"}) {
    const std::string told = "[error] rdmd: reopen the " + std::string(log) +
                             " log: No such file or directory; still writing to the old file\n";
    EXPECT_TRUE(support::eventually([&] { return old_log("errors").find(told) != std::string::npos; })) << log;
  }
  support::http_get(port, "/rdm/fast");
  EXPECT_TRUE(support::eventually([&] { return old_log("access").find("/rdm/fast") != std::string::npos; }));
}

TEST_F(HostLifecycle, NoLogTakesThePlaceOfAClosedStandardStream) {
  // Regression: the access log became descriptor 2, and messages for standard error were written into it.
  const std::string log = directory_.path("access.log");
  const std::string command = support::in_build("bin/rdmd") + " --listen 127.0.0.1:0 --plugin " + plugin() +
                              " --config " + config("fail=\"The stars are wrong.\"\n") + " --access-log " + log +
                              " 2>&-";
  EXPECT_EQ(support::run({"/bin/sh", "-c", command}).status, 1);
  EXPECT_EQ(support::read_file(log), "");
}

TEST_F(HostLifecycle, TheAccessLogGoesToStandardOutputWhenAsked) {
  RdmdProcess server(arguments({"--access-log", "-"}));
  support::http_get(server.port(), "/rdm/fast");
  EXPECT_TRUE(support::eventually(
      [&] { return server.output().find("\"GET /rdm/fast HTTP/1.1\" 200 5 \"-\" \"-\"\n") != std::string::npos; }));
}

TEST_F(HostLifecycle, WithoutAnAccessLogNothingIsWrittenToStandardOutput) {
  RdmdProcess server(arguments({}));
  support::http_get(server.port(), "/rdm/fast");
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(server.output(), "");
}

TEST_F(HostLifecycle, TakesItsOptionsFromAFile) {
  const std::string options =
      directory_.write("options.toml", "listen = \"127.0.0.1:0\"\nplugin = \"" + plugin() + "\"\nconfig = \"" +
                                           config() + "\"\nidle-timeout = 0.2\n");
  RdmdProcess server({"--options", options});
  HttpClient client(server.port());
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(client.ended());
}

TEST_F(HostLifecycle, RefusesMistakenOptions) {
  const std::string conf = config();
  const struct {
    std::vector<std::string> arguments;
    const char *message;
  } cases[] = {
      {{}, "rdmd: --config is required; see \"rdmd --help\"\n"},
      {{"--config", conf, "--workers", "-1"}, "--workers"},
      {{"--config", conf, "--workers", "257"}, "--workers"},
      {{"--config", conf, "--queue-length", "0"}, "--queue-length"},
      {{"--config", conf, "--queue-time", "0"}, "--queue-time"},
      {{"--config", conf, "--service-timeout", "x"}, "--service-timeout"},
      {{"--config", conf, "--frobnicate"}, "rdmd: unknown option \"--frobnicate\"; see \"rdmd --help\"\n"},
      {{"--config", conf, "--lisen", "x:1"},
       "rdmd: unknown option \"--lisen\" (did you mean \"--listen\"?); see \"rdmd --help\"\n"},
      {{"--config", conf, "serve"}, "rdmd: unexpected argument \"serve\"; see \"rdmd --help\"\n"},
      {{"--config", conf, "--idle-timeout", "0"}, "--idle-timeout"},
      {{"--config", conf, "--max-connections", "0"}, "--max-connections: Value 0 not in range 1 to 65536"},
      {{"--config", conf, "--max-connections-per-address", "-1"},
       "--max-connections-per-address: Value -1 not in range 0 to 65536"},
      {{"--config", conf, "--idle-timeout", "nan"}, "--idle-timeout: Value nan is not a number"},
      {{"--config", conf, "--rate-per-address", "NaN"}, "--rate-per-address: Value NaN is not a number"},
      {{"--config", conf, "--rate-per-address", "-1"}, "--rate-per-address: Value -1 not in range 0.0"},
      {{"--config", conf, "--spill-limit", "much"},
       "rdmd: --spill-limit: \"much\" is not a number of bytes such as 4096, 64K or 1M; see \"rdmd --help\"\n"},
      {{"--config", conf, "--spill-limit-per-address", "-1"}, "--spill-limit-per-address: Value -1 not in range 0 to "},
      {{"--config", conf, "--trusted-proxy", "localhost"},
       "rdmd: --trusted-proxy: \"localhost\" is not an address, ADDRESS/BITS or \"unix\"; see \"rdmd --help\"\n"},
      {{"--config", conf, "--proxy-protocol"},
       "rdmd: --proxy-protocol requires --trusted-proxy; see \"rdmd --help\"\n"},
      {{"--config", conf, "--max-head-bytes", "65K"}, "--max-head-bytes: Value 66560 not in range 256 to 65536"},
      {{"--config", conf, "--max-head-fields", "0"}, "--max-head-fields: Value 0 not in range 1 to 1000"},
      {{"--config", conf, "--max-target-bytes", "1"}, "--max-target-bytes: Value 1 not in range 64 to 65536"},
      {{"--config", conf, "--min-send-rate", "1X"},
       "--min-send-rate: \"1X\" is not a number of bytes such as 4096, 64K or 1M; see \"rdmd --help\"\n"},
      {{"--config", conf, "--options", "/nonexistent/options.toml"}, "/nonexistent/options.toml"},
      {{"--config", conf, "--options", directory_.write("bad.toml", "lissen = \"127.0.0.1:0\"\n")},
       "rdmd: unknown name \"lissen\" in the options file (did you mean \"listen\"?); see \"rdmd --help\"\n"},
  };
  for (const auto &row : cases)
    EXPECT_NE(refused(row.arguments, 2).find(row.message), std::string::npos) << row.message;
}

TEST_F(HostLifecycle, TellsItsVersionAndItsOptions) {
  RdmdProcess version({"--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_TRUE(std::regex_match(version.output(), std::regex("rdmd \\d+\\.\\d+\\.\\d+\n"))) << version.output();
  RdmdProcess help({"--help"});
  EXPECT_EQ(help.wait(), 0);
  for (const char *option : {"--listen",
                             "--plugin",
                             "--config",
                             "--workers",
                             "--access-log",
                             "--error-log",
                             "--check",
                             "--options",
                             "--header-timeout",
                             "--body-timeout",
                             "--idle-timeout",
                             "--write-timeout",
                             "--linger-timeout",
                             "--shutdown-timeout",
                             "--max-connections",
                             "--max-connections-per-address",
                             "--rate-per-address",
                             "--spill-limit",
                             "--spill-limit-per-address",
                             "--trusted-proxy",
                             "--proxy-protocol",
                             "--max-head-bytes",
                             "--max-head-fields",
                             "--max-target-bytes",
                             "--min-send-rate",
                             "--threads"})
    EXPECT_NE(help.output().find(option), std::string::npos) << option;
}

TEST_F(HostLifecycle, RefusesAddressesItCannotListenOn) {
  start();
  const std::string used = "127.0.0.1:" + std::to_string(port_);
  const std::pair<std::string, const char *> cases[] = {{"8380", "HOST:PORT is required"},
                                                        {"192.0.2.1:0", "Cannot assign requested address"},
                                                        {used, "Address already in use"}};
  for (const auto &[listen, reason] : cases) {
    const std::string errors = refused({"--listen", listen, "--plugin", plugin(), "--config", config_});
    EXPECT_NE(errors.find("cannot listen on " + listen + ": " + reason), std::string::npos) << errors;
  }
}

TEST_F(HostLifecycle, RefusesAMissingPlugin) {
  EXPECT_NE(refused({"--listen", "127.0.0.1:0", "--plugin", "/nonexistent.so", "--config", config()})
                .find("cannot load the plug-in: /nonexistent.so"),
            std::string::npos);
}

TEST_F(HostLifecycle, EndsWhenThePluginRefusesItsConfiguration) {
  const std::string conf = config("fail=\"The stars are wrong.\"\n");
  const std::string errors = refused({"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", conf});
  EXPECT_NE(errors.find("[error] rdmd: " + conf + ": The stars are wrong.\n"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("listening"), std::string::npos);
}

TEST_F(HostLifecycle, NoClientConnectsBeforeThePluginIsInitialised) {
  // Regression: a server whose start failed had already accepted connections, so load balancers considered it alive.
  const std::string conf = config("wait=\"" + directory_.path("go") + "\"\nfail=\"The stars are wrong.\"\n");
  auto reserved = std::make_unique<support::ReservedPort>();
  const int port = reserved->number();
  RdmdProcess server({"--listen", reserved->address(), "--plugin", plugin(), "--config", conf, "--workers",
                      std::min(support::tested_workers(), std::string("1"))});
  EXPECT_TRUE(support::eventually(
      [&] { return support::file_exists(directory_.path("journal")) && journal() == "waiting\n"; }));
  reserved.reset();
  EXPECT_TRUE(is_bound(port));
  EXPECT_TRUE(refuses(port));
  directory_.write("go", "");
  EXPECT_EQ(server.wait(), 1);
}

TEST_F(HostLifecycle, RefusesLogsItCannotWrite) {
  for (const char *option : {"--access-log", "--error-log"})
    EXPECT_NE(refused(arguments({option, "/nonexistent/log"})).find("/nonexistent/log: No such file or directory"),
              std::string::npos)
        << option;
}

}  // namespace
