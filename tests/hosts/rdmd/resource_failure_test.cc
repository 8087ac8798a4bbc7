// SPDX-License-Identifier: MIT
/// Resource failures while the service answers: those that replace an answer by a 500, and those that do not.

#include <filesystem>
#include <string>

#include "hosts/rdmd/server_fixture.h"
#include "support/file_limit.h"
#include "support/process.h"

using namespace rdm;

namespace {

using support::HttpResponse;

/// Runs the server with the real service. It has one catalog service; each test creates the files it needs.
class HostResourceFailures : public support::ServerTest {
 protected:
  void serve(const std::string &debug_log, const std::vector<std::string> &more = {}) {
    const std::string csid = "x-catalog://localhost:80/c";
    const std::string services =
        directory_.write("csid.conf", "csid=\"" + csid + "\" catalog-database=\"" + directory_.path("c.db") +
                                          "\" server-description=\"" + description_ + "\"\n");
    const std::string config =
        directory_.write("rdm.conf", "bindir=\"/nowhere\" csid-config=\"" + services + "\" csid-default=\"" + csid +
                                         "\" debug-loglevel=\"1\" debug-logfile=\"" + debug_log + "\"\n");
    std::vector<std::string> arguments = {"--listen", "127.0.0.1:0", "--config", config};
    arguments.insert(arguments.end(), more.begin(), more.end());
    server_ = std::make_unique<support::RdmdProcess>(arguments);
    port_ = server_->port();
  }

  /// expect_error requests `target` and expects an answer with this error message.
  void expect_error(const std::string &target, const std::string &message) {
    const HttpResponse response = support::http_get(port_, target);
    EXPECT_EQ(response.status, 200) << target;
    EXPECT_NE(response.body.find("\t" + message + "\n"), std::string::npos) << response.body;
  }

  std::string description_ = directory_.path("server.rdm");
};

constexpr char harvest[] = "/rdm/rd-request?ql=gatherer&scope=all";

TEST_F(HostResourceFailures, AnErrorLogThatTakesNothingCostsNoAnswer) {
  serve(directory_.path("debug.log"), {"--error-log", "/dev/full"});
  const HttpResponse response = support::http_get(port_, "/rdm/nothing-known");
  EXPECT_EQ(response.status, 200);
  EXPECT_NE(response.body.find("Did not receive valid URI for RDM header."), std::string::npos) << response.body;
}

TEST_F(HostResourceFailures, ADiagnosticLogThatIsAPipeCostsNoAnswer) {
  serve("/dev/stderr");
  expect_error(harvest, "Server Error: Cannot service request");
  EXPECT_TRUE(server_->await_error("ERROR: Cannot read index for catalog-database"));
}

TEST_F(HostResourceFailures, ADescriptionThatCannotBeExaminedIsAnsweredAsMissing) {
  std::filesystem::create_symlink(description_, description_);
  serve(directory_.path("debug.log"));
  expect_error("/rdm/server-description-request", "Server description is unavailable.");
}

TEST_F(HostResourceFailures, ADescriptionWithANameTooLongIsAnsweredAsMissing) {
  description_ = directory_.path(std::string(300, 'x'));
  serve(directory_.path("debug.log"));
  expect_error("/rdm/server-description-request", "Server description is unavailable.");
}

TEST_F(HostResourceFailures, ADescriptionThatIsADirectoryIsNotSent) {
  std::filesystem::create_directory(description_);
  serve(directory_.path("debug.log"));
  EXPECT_EQ(support::http_get(port_, "/rdm/server-description-request").status, 500);
}

TEST_F(HostResourceFailures, AnIndexThatIsADirectoryIsAnsweredAsCorrupt) {
  std::filesystem::create_directory(directory_.path("c.db.idx"));
  serve(directory_.path("debug.log"));
  expect_error(harvest, "Server Error: Cannot service request");
  EXPECT_NE(support::read_file(directory_.path("debug.log")).find("ERROR: Indexfile is corrupt"), std::string::npos);
}

TEST_F(HostResourceFailures, AnAnswerThatTheDiskHasNoRoomForCostsNoOther) {
  std::string feed;
  for (int number = 0; number < 100; ++number)
    feed += "@FILE { http://localhost/" + std::to_string(number) + "\ntitle{400}:\t" + std::string(400, 'x') + "\n}\n";
  const support::Finished published = support::run({support::in_build("bin/rdmctl"), "publish", "--quiet",
                                                    directory_.path("c.db"), directory_.write("feed.soif", feed)});
  ASSERT_EQ(published.status, 0) << published.errors;
  const support::FileLimit limit(20'000);  // in the place of a disk that is full
  serve(directory_.path("debug.log"));
  EXPECT_EQ(support::http_get(port_, harvest).status, 500);
  EXPECT_TRUE(
      server_->await_error("[error] rdmd: cannot answer a request: File too large (client 127.0.0.1, request "));
  const HttpResponse few = support::http_get(port_, std::string(harvest) + "&view-hits=20");
  EXPECT_EQ(few.status, 200);
  EXPECT_NE(few.body.find("@FILE { http://localhost/19\n"), std::string::npos) << few.body;
}

}  // namespace
