// SPDX-License-Identifier: MIT
/// The example host, which embeds the service, beside the server.
#include <signal.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;
using testing::HasSubstr;

namespace {

/// configure writes a service with the example catalog "classics" and returns the path of its configuration.
std::string configure(const support::TemporaryDirectory &directory) {
  const std::string examples = support::in_source("examples/classics/"), database = directory.path("classics.db");
  const support::Finished published =
      support::run({support::in_build("bin/rdmctl"), "publish", database, examples + "rds.soif"});
  EXPECT_EQ(published.status, 0) << published.errors;
  const std::string csid = "x-catalog://localhost:8380/classics";
  const std::string list = directory.write("csid.conf", "csid=\"" + csid + "\"\ncatalog-database=\"" + database +
                                                            "\"\nserver-description=\"" + examples + "server.rdm\"\n");
  return directory.write("rdm.conf", "bindir=\"" + support::in_build("bin") + "\" csid-config=\"" + list +
                                         "\" csid-default=\"" + csid + "\" debug-loglevel=0 logfile=\"" +
                                         directory.path("transactions") + "\"\n");
}

/// EmbeddingHost runs the example on a free port.
class EmbeddingHost : public ::testing::Test {
 protected:
  EmbeddingHost() : config_(configure(directory_)) {
    process_ = support::start({support::in_build("examples/host"), config_, "0"}, "/dev/null", directory_.path("out"),
                              directory_.path("errors"));
    EXPECT_TRUE(support::eventually([this] { return said().ends_with("\n"); }));
    const std::string announcement = "listening on 127.0.0.1:";
    if (said().starts_with(announcement)) port_ = std::stoi(said().substr(announcement.size()));
  }
  ~EmbeddingHost() override {
    ::kill(process_, SIGTERM);
    EXPECT_EQ(support::wait_for(process_), 0) << support::read_file(directory_.path("errors"));
  }

  std::string said() const {
    return support::file_exists(directory_.path("out")) ? support::read_file(directory_.path("out")) : "";
  }
  static std::string post(int port, const std::string &body) {
    support::HttpClient client(port);
    client.send("POST /rdm/incoming HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body);
    return client.receive().body;
  }

  support::TemporaryDirectory directory_;
  std::string config_;
  int port_ = 0;

 private:
  pid_t process_;
};

TEST_F(EmbeddingHost, AnswersAsTheServerDoes) {
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--config", config_});
  const int server_port = server.port();
  for (const std::string target : {"status-request", "server-description-request", "taxonomy-description-request",
                                   "rd-request?ql=gatherer&scope=all", "rd-request?ql=gatherer&scope=all&csid=x",
                                   "rd-request?ql=gatherer&scope=all&view-attributes=title&view-hits=3", "nothing"}) {
    const support::HttpResponse answer = support::http_get(port_, "/rdm/" + target);
    const support::HttpResponse expected = support::http_get(server_port, "/rdm/" + target);
    EXPECT_EQ(answer.body, expected.body) << target;
    for (const char *field : {"content-type", "content-length"})
      EXPECT_EQ(answer.field(field), expected.field(field)) << target;
    EXPECT_EQ(answer.status, expected.status) << target;
  }
  EXPECT_EQ(support::http_get(port_, "/elsewhere").status, 404);
}

TEST_F(EmbeddingHost, ReadsTheBodyOfAMessage) {
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--config", config_});
  const int server_port = server.port();
  const std::string message = support::read_file(support::in_source("examples/requests/status.rdm"));
  EXPECT_THAT(post(port_, message), HasSubstr("Online."));
  EXPECT_EQ(post(port_, message), post(server_port, message));
  const std::string large(40'000, 'x');
  EXPECT_THAT(post(port_, large), HasSubstr("Content-length is undefined or too long."));
}

TEST_F(EmbeddingHost, SurvivesWhatIsNoRequest) {
  const std::vector<std::string> texts = {"", "\r\n\r\n", "GET\r\n\r\n", std::string(100'000, 'x'),
                                          "POST / HTTP/1.1\r\ncontent-length: 9\r\n\r\nx"};
  for (const std::string &text : texts) {
    support::HttpClient client(port_);
    if (!text.empty()) client.send(text);
    client.finish_sending();
    client.receive_rest();
  }
  EXPECT_EQ(support::http_get(port_, "/rdm/status-request").status, 200);
}

TEST_F(EmbeddingHost, IsMirrored) {
  const std::string url = "http://127.0.0.1:" + std::to_string(port_) + "/rdm", mirror = directory_.path("mirror.db");
  const support::Finished mirrored = support::run(
      {support::in_build("bin/rdm"), "mirror", "--quiet", "--state", directory_.path("state"), url, mirror});
  EXPECT_EQ(mirrored.status, 0) << mirrored.errors;
  const support::Finished compared =
      support::run({support::in_build("bin/rdmctl"), "diff", directory_.path("classics.db"), mirror});
  EXPECT_EQ(compared.status, 0) << compared.out;
  EXPECT_THAT(support::read_file(directory_.path("transactions")), HasSubstr("24 RDs"));
}

TEST(EmbeddingHostStart, FailsWithTheReasonOfTheService) {
  const support::TemporaryDirectory directory;
  const std::string config = directory.write("rdm.conf", "tmpdir=/tmp\n");
  const support::Finished done = support::run({support::in_build("examples/host"), config, "0"});
  EXPECT_EQ(done.status, 1);
  EXPECT_THAT(done.errors, HasSubstr("host: " + config + ": "));
  EXPECT_EQ(done.out, "");
}

}  // namespace
