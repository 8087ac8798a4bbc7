// SPDX-License-Identifier: MIT
/// The events in the life of a server: clients get the same answers after each.

#include <signal.h>

#include <filesystem>
#include <iterator>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "e2e/service.h"

namespace rdm::e2e {
namespace {

using support::HttpClient;
using support::HttpResponse;

class Life : public ServiceTest {
 protected:
  using Answers = std::vector<std::pair<int, std::string>>;

  void start_workers() { start("", {"--workers", "2"}); }

  /// answers returns status and body of the answers to one request of each kind.
  Answers answers() {
    Answers all;
    const std::string harvest = "/rdm/rd-request?ql=gatherer&scope=all";
    for (const std::string &target :
         {std::string("/rdm/status-request"), std::string("/rdm/server-description-request"),
          "/rdm/schema-description-request?csid=" + classics, "/rdm/taxonomy-description-request?csid=" + classics,
          harvest, harvest + "&csid=" + classics, harvest + "&view-attributes=title,author", harvest + "&view-hits=3",
          harvest + "&csid=x-catalog://nobody/nothing", std::string("/rdm/nothing"), std::string("/nowhere")})
      add(all, get(target));
    for (const char *scope : {"since Thu, 01 Jan 2015 00:00:00 GMT", "since Sat, 01 Jan 2050 00:00:00 GMT", "nothing"})
      add(all, post("/rdm/rd-request", rd_request(rfc, attribute("scope", scope))));
    add(all, post("/rdm/rd-request", rd_request(rfc, attribute("scope", "all")), "Accept-Encoding: gzip\r\n"));
    add(all, post("/rdm/incoming", "no message"));
    HttpClient client(port_);
    client.send("no request\r\n\r\n");
    add(all, client.receive());
    return all;
  }

  /// files_left returns the number of files that the processes have left in the directory for temporary files.
  long files_left() const {
    const std::filesystem::directory_iterator files(directory_.path("tmp"));
    return std::distance(files, std::filesystem::directory_iterator());
  }

  void reload_to(const std::string &line) {
    server_->signal(SIGHUP);
    EXPECT_TRUE(server_->await_error(line)) << server_->errors();
  }

  static void kill_one(const std::vector<pid_t> &processes) {
    ASSERT_FALSE(processes.empty());
    ::kill(processes.front(), SIGKILL);
    EXPECT_TRUE(support::eventually([&] { return ::kill(processes.front(), 0) != 0; }));
  }

 private:
  static void add(Answers &all, const HttpResponse &response) { all.emplace_back(response.status, response.body); }
};

TEST_F(Life, AnswersStayTheSameAfterReloadsAndTheEndsOfProcesses) {
  start_workers();
  const Answers first = answers();
  EXPECT_EQ(answers(), first);
  reload_to("the workers of generation 2 serve\n");
  EXPECT_EQ(answers(), first) << "after a reload";
  const std::string path = directory_.path("rdm.conf"), right = support::read_file(path);
  support::write_file(path, std::regex_replace(right, std::regex("bindir="), "no-bindir="));
  reload_to("; still serving with the former configuration\n");
  EXPECT_EQ(answers(), first) << "after a reload that failed";
  support::write_file(path, right);
  kill_one(server_->children("rdmd-worker"));
  EXPECT_EQ(answers(), first) << "after the end of a worker";
  kill_one(server_->children("rdmd-front"));
  EXPECT_EQ(answers(), first) << "after the end of the front";
  EXPECT_EQ(stop(), 0) << server_->errors();
  EXPECT_EQ(files_left(), 0);
}

TEST_F(Life, AnswersStayTheSameAfterAnUpgrade) {
  start_workers();
  const Answers first = answers();
  server_->signal(SIGUSR2);
  ASSERT_TRUE(server_->await_error(" has taken over\n")) << server_->errors();
  EXPECT_EQ(answers(), first);
  const std::string log = server_->errors(), mark = "upgrade: process ";
  ::kill(std::stoi(log.substr(log.find(mark) + mark.size())), SIGTERM);
  EXPECT_EQ(server_->wait(), 0) << server_->errors();
  EXPECT_EQ(files_left(), 0);
}

}  // namespace
}  // namespace rdm::e2e
