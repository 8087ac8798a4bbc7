// SPDX-License-Identifier: MIT
/// Many clients at once while logs are rotated and catalogs rebuilt: each is answered as if it were alone.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e/service.h"
#include "support/directories.h"

using namespace rdm;

namespace {

using namespace rdm::e2e;
using support::HttpClient;
using support::HttpResponse;

constexpr int clients = 16;
constexpr int rounds = 3;

/// Threads joins its threads at the end of its scope.
class Threads {
 public:
  void add(std::function<void()> work) { threads_.emplace_back(std::move(work)); }
  ~Threads() {
    for (std::thread &thread : threads_) thread.join();
  }

 private:
  std::vector<std::thread> threads_;
};

std::string get_request(const std::string &target, const std::string &method = "GET") {
  return method + " " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

std::string post_request(const std::string &target, const std::string &body) {
  return "POST " + target + " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

/// A request's answer, and its line in the transaction log without the time.
struct Exchange {
  std::string request;
  std::string answer;
  std::vector<std::string> lines;
};

class Concurrency : public ServiceTest {
 protected:
  static void SetUpTestSuite() {}
  static void TearDownTestSuite() {}

  void SetUp() override {
    for (const char *name : {"rfc", "classics"})
      make_catalog(directory_.path(), name, examples::example(std::string(name) + "/rds.soif"));
    start(filled("csid.conf.in", directory_.path()));
    for (const std::string &request : requests()) {
      const std::size_t before = lines().size();
      HttpClient client(port_);
      Exchange exchange{request, answer(client, request), lines()};
      exchange.lines.erase(exchange.lines.begin(), exchange.lines.begin() + static_cast<std::ptrdiff_t>(before));
      exchanges_.push_back(exchange);
    }
  }

  static std::vector<std::string> requests() {
    const std::string since = "since Thu, 01 Jan 2015 00:00:00 GMT";
    std::vector<std::string> all{get_request("/rdm/status-request"),
                                 get_request("/rdm/status-request", "HEAD"),
                                 post_request("/rdm/incoming", request_header("status-request") + "\n"),
                                 get_request("/rdm/rd-request?ql=sql&scope=all"),
                                 get_request("/rdm/rd-request?ql=gatherer&scope=some"),
                                 get_request("/rdm/rd-request?ql=gatherer&scope=all&view-hits=-1"),
                                 get_request("/rdm/nothing-known"),
                                 get_request("/rdm/status-request?csid=x-catalog://nowhere:1/x"),
                                 get_request("/elsewhere"),
                                 post_request("/rdm/rd-response", request_header("rd-response") + "\n"),
                                 post_request("/rdm/status-request", "hello")};
    for (const std::string &csid : {rfc, classics}) {
      all.push_back(post_request("/rdm/rd-request", rd_request(csid, attribute("scope", "all"))));
      all.push_back(post_request("/rdm/rd-request", rd_request(csid, attribute("scope", since))));
      all.push_back(
          post_request("/rdm/rd-request",
                       rd_request(csid, attribute("scope", "all") + attribute("view-attributes", "title,author"))));
      for (const char *kind : {"server", "schema", "taxonomy"})
        all.push_back(get_request("/rdm/" + std::string(kind) + "-description-request?csid=" + csid));
    }
    return all;
  }

  static bool is_head(const std::string &request) { return request.starts_with("HEAD"); }
  /// answer returns what the client receives, without the date.
  static std::string answer(HttpClient &client, const std::string &request) {
    client.send(request);
    const HttpResponse response = client.receive(is_head(request));
    return std::regex_replace(response.head, std::regex("\r\n(Date|X-Request-Id): [^\r]*"), "") + response.body;
  }

  /// lines returns the lines of the transaction log without their times.
  std::vector<std::string> lines() const {
    static const std::regex whole(R"(127\.0\.0\.1 - - \[[^\]]+\] ".*" \S+ \S+)");
    std::vector<std::string> lines;
    const std::string log = transactions();
    EXPECT_TRUE(log.empty() || log.back() == '\n');
    for (std::size_t at = 0, end = 0; (end = log.find('\n', at)) != std::string::npos; at = end + 1) {
      const std::string line = log.substr(at, end - at);
      EXPECT_TRUE(std::regex_match(line, whole)) << line;
      lines.push_back(std::regex_replace(line, std::regex(R"(\[[^\]]+\])"), "[]"));
    }
    return lines;
  }

  void expect_whole_diagnostics() const {
    static const std::regex whole(R"(\[\d\d/\w{3}/\d{4}:\d\d:\d\d:\d\d\] +\d+@\d+:.*)");
    std::istringstream log(support::read_file(directory_.path("debug.log")));
    for (std::string line; std::getline(log, line);) EXPECT_TRUE(std::regex_match(line, whole)) << line;
  }

  /// harvest makes a client send all requests in an order of its own, on one connection if it stays open.
  void harvest(unsigned seed) {
    std::mt19937 random(seed);
    auto client = std::make_unique<HttpClient>(port_);
    for (int round = 0; round < rounds; ++round) {
      std::vector<const Exchange *> order;
      for (const Exchange &exchange : exchanges_) order.push_back(&exchange);
      std::shuffle(order.begin(), order.end(), random);
      for (const Exchange *exchange : order) {
        const std::string got = answer(*client, exchange->request);
        if (got != exchange->answer) ++wrong_;
        EXPECT_EQ(got, exchange->answer) << exchange->request;
        const bool closes = got.find("Connection: close") != std::string::npos;
        if (closes || random() % 8 == 0) client = std::make_unique<HttpClient>(port_);
      }
    }
  }

  /// while_clients_harvest repeats `work` until all clients are done.
  void while_clients_harvest(const std::vector<std::function<void()>> &works) {
    std::atomic<bool> done = false;
    Threads operators;
    for (const auto &work : works)
      operators.add([&done, work] {
        while (!done) {
          work();
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
      });
    {
      Threads harvesters;
      for (unsigned i = 0; i < clients; ++i) harvesters.add([this, i] { harvest(i); });
    }
    done = true;
  }

  /// rotate renames the access log and makes the server open a new one.
  void rotate() {
    std::error_code ignored;
    std::filesystem::rename(directory_.path("access"), directory_.path("access." + std::to_string(++rotations_)),
                            ignored);
    server_->signal(SIGHUP);
  }
  void rebuild() const {
    const std::string database = directory_.path("classics.db"), bin = support::in_build("bin/minidba") + " -q -d ";
    run(bin + database + " rebuild");
    run(bin + database + " -i " + database + ".idx index");
  }

  std::vector<Exchange> exchanges_;
  std::atomic<int> wrong_ = 0;
  int rotations_ = 0;
};

TEST_F(Concurrency, EverybodyIsAnsweredAsIfAlone) {
  std::vector<std::string> expected = lines();
  for (int i = 0; i < clients * rounds; ++i)
    for (const Exchange &exchange : exchanges_)
      expected.insert(expected.end(), exchange.lines.begin(), exchange.lines.end());
  while_clients_harvest({[this] { rotate(); }, [this] { rebuild(); }});
  EXPECT_EQ(wrong_, 0);
  EXPECT_EQ(stop(), 0);

  std::vector<std::string> found = lines();
  std::sort(found.begin(), found.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_TRUE(found == expected) << found.size() << " transactions instead of " << expected.size();
  expect_whole_diagnostics();
  std::string access_lines = access();
  for (int i = 1; i <= rotations_; ++i)
    if (const std::string name = directory_.path("access." + std::to_string(i)); support::file_exists(name))
      access_lines += support::read_file(name);
  EXPECT_EQ(static_cast<std::size_t>(std::count(access_lines.begin(), access_lines.end(), '\n')),
            exchanges_.size() * (clients * rounds + 1));
}

/// Copying and truncating may lose lines in between, but never leaves part of a line.
TEST_F(Concurrency, ATruncatedTransactionLogContinuesWithWholeLines) {
  const std::string log = directory_.path("rdm.log"), diagnostics = directory_.path("debug.log");
  while_clients_harvest({[&] {
    for (const std::string &path : {log, diagnostics}) std::filesystem::resize_file(path, 0);
  }});
  EXPECT_EQ(wrong_, 0);
  EXPECT_EQ(stop(), 0);
  lines();
  expect_whole_diagnostics();
}

}  // namespace
