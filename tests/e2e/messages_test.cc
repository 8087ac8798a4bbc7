// SPDX-License-Identifier: MIT
/// Status, descriptions, refusals and their log lines.

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "e2e/service.h"

using namespace rdm;

namespace {

using namespace rdm::e2e;
using support::HttpClient;
using support::HttpResponse;

class Messages : public ServiceTest {
 protected:
  static std::string description(const std::string &name) { return support::read_file(examples::example(name)); }
};

TEST_F(Messages, StatusIsOnline) {
  start();
  const std::string online =
      "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n\n\nOnline.\n";
  for (const char *target : {"/rdm/status-request", "/rdm/incoming?type=status-request", "/RDM/Status-Request",
                             "/rdm/incoming?type=STATUS-request", "/rdm/%73tatus-request"}) {
    const HttpResponse response = get(target);
    EXPECT_EQ(response.status, 200) << target;
    EXPECT_EQ(response.reason, "OK") << target;
    EXPECT_EQ(response.field("content-type"), "application/x-rdm") << target;
    EXPECT_EQ(response.field("content-length"), "79") << target;
    EXPECT_EQ(response.body, online) << target;
  }
  for (const char *target : {"/rdm/status-request", "/rdm/incoming"})
    EXPECT_EQ(post(target, request_header("status-request") + "\n").body, online) << target;
}

TEST_F(Messages, DescriptionsAreTheirFiles) {
  start();
  const struct {
    const char *type, *file;
  } kinds[] = {{"server-description-request", "server.rdm"},
               {"schema-description-request", "schema.rdm"},
               {"taxonomy-description-request", "taxonomy.rdm"}};
  for (const auto &[name, csid] : std::map<std::string, std::string>{{"rfc", rfc}, {"classics", classics}})
    for (const auto &kind : kinds) {
      const std::string file = description(name + "/" + kind.file);
      const HttpResponse response = get(std::string("/rdm/") + kind.type + "?csid=" + csid);
      EXPECT_EQ(response.body, file) << name << ' ' << kind.type;
      EXPECT_EQ(response.field("content-length"), std::to_string(file.size()));
      EXPECT_EQ(post(std::string("/rdm/") + kind.type, request_header(kind.type, csid) + "\n").body, file);
    }
}

TEST_F(Messages, AMissingDescriptionIsAnsweredInItsOwnKind) {
  start("csid=\"" + rfc + "\"\n");
  EXPECT_EQ(get("/rdm/server-description-request").body,
            answer_header("server-description-response", "Server description is unavailable."));
  EXPECT_EQ(get("/rdm/schema-description-request").body,
            answer_header("schema-description-response", "Schema description is unavailable."));
  EXPECT_EQ(get("/rdm/taxonomy-description-request").body,
            answer_header("taxonomy-description-response", "Taxonomy is unavailable."));
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all").body,
            answer_header("status-response", "Server Error: Cannot service request"));
}

TEST_F(Messages, AnEmptyDescriptionIsAHeadWithoutLength) {
  const std::string empty = directory_.write("empty.rdm", "");
  start("csid=\"" + rfc + "\" server-description=\"" + empty + "\"\n");
  const HttpResponse response = get("/rdm/server-description-request");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.fields.count("content-length"), 0u);
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "");
  const std::string diagnostics = support::read_file(directory_.path("debug.log"));
  EXPECT_NE(diagnostics.find("ERROR: RDM Engine generated a bad result?\n"), std::string::npos) << diagnostics;
  EXPECT_NE(diagnostics.find("ERROR: \tZero length result.\n"), std::string::npos) << diagnostics;
}

TEST_F(Messages, RefusalsAreAnsweredAndReported) {
  start();
  const std::string status = request_header("status-request");
  const struct {
    std::string request;
    std::string text;
  } cases[] = {
      {"POST /rdm/status-request?csid=x HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n\r\n\n",
       "Malformed RDM request - Use GET method."},
      {"PUT /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n\r\n\n",
       "Malformed RDM request - Use POST method."},
      {"DELETE /rdm/incoming HTTP/1.1\r\nHost: h\r\n\r\n", "Malformed RDM request - Use POST method."},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\n\r\n", "Content-length is undefined or too long."},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n",
       "Content-length is undefined or too long."},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 32769\r\n\r\n",
       "Content-length is undefined or too long."},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 18446744073709551615\r\n\r\n",
       "Content-length is undefined or too long."},
      {"GET /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 40000\r\n\r\n",
       "Content-length is undefined or too long."},
      {"GET /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Encoding: x-gzip\r\n\r\n",
       "Unsupported content-encoding."},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nhello",
       "Did not receive valid RDM message header."},
      {"GET /rdm/incoming?type=server-description-request HTTP/1.1\r\nHost: h\r\n\r\n",
       "Did not receive valid URI for RDM header."},
      {"GET /rdm/nothing-known HTTP/1.1\r\nHost: h\r\n\r\n", "Did not receive valid URI for RDM header."},
      {"GET /rdm/status-request?csid=x-catalog://nowhere:1/x HTTP/1.1\r\nHost: h\r\n\r\n",
       "Unknown CSID: x-catalog://nowhere:1/x\n"},
      {"POST /rdm/status-request HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::to_string(status.size()) + "\r\n\r\n" +
           status,
       "Did not receive content-length bytes."},
  };
  for (const auto &row : cases) {
    HttpClient client(port_);
    client.send(row.request);
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.status, 200) << row.request;
    EXPECT_EQ(response.field("content-type"), "application/x-rdm") << row.request;
    EXPECT_EQ(response.body, refusal(row.text)) << row.request;
    const std::string line = row.text.substr(0, row.text.find('\n'));
    EXPECT_TRUE(server_->await_error("[error] rdmd: rdm-service: " + line + " (client 127.0.0.1, request "))
        << row.request;
  }
  EXPECT_EQ(transactions(), "") << "a refused request leaves no line";
}

TEST_F(Messages, AMessageOfTheLargestLengthIsRead) {
  start();
  const std::string header = request_header("status-request");
  const std::string body = header + std::string(32768 - header.size(), '\n');
  EXPECT_EQ(post("/rdm/status-request", body).body, answer_header("status-response") + "\n\nOnline.\n");
}

TEST_F(Messages, OtherTypesAreNotSupported) {
  start();
  for (const char *type : {"rd-response", "rd-delete-request", "rd-delete-response", "status-response"})
    EXPECT_EQ(
        post(std::string("/rdm/") + type, request_header(type) + "\n").body,
        answer_header("status-response", std::string("RDM-Type=") + type + " is not supported by this RDM server."));
}

TEST_F(Messages, BadQueriesAreRefusedByTheirHandler) {
  start();
  const struct {
    std::string target, answer;
  } cases[] = {
      {"/rdm/rd-request?ql=sql&scope=all",
       answer_header("status-response", "Unsupported query language.") + "\n\nUnsupported query language.\n"},
      {"/rdm/rd-request?ql=gatherer&scope=some", answer_header("status-response", "Scope parameter malformed.")},
  };
  for (const auto &row : cases) {
    const HttpResponse response = get(row.target);
    EXPECT_EQ(response.status, 200) << row.target;
    EXPECT_EQ(response.reason, "OK") << row.target;
    EXPECT_EQ(response.body, row.answer) << row.target;
  }
  EXPECT_TRUE(
      server_->await_error("rdm-service: Invalid RDM RD-Request message -- Bad scope. (client 127.0.0.1, request "));
}

TEST_F(Messages, HeadIsRefusedWithoutABody) {
  start();
  HttpClient client(port_);
  client.send(
      "HEAD /rdm/status-request HTTP/1.1\r\nHost: h\r\n\r\nGET /rdm/status-request HTTP/1.1\r\nHost: h\r\n\r\n");
  const std::string refused = refusal("Malformed RDM request - Use POST method.");
  EXPECT_EQ(client.receive(true).field("content-length"), std::to_string(refused.size()));
  EXPECT_EQ(client.receive().body, answer_header("status-response") + "\n\nOnline.\n");
}

TEST_F(Messages, PathsElsewhereAreNotFound) {
  start();
  EXPECT_EQ(get("/").status, 404);
  EXPECT_EQ(get("/status-request").status, 404);
}

TEST_F(Messages, EachExchangeLeavesATransactionLine) {
  start();
  get("/rdm/status-request");
  get("/rdm/server-description-request");
  get("/rdm/schema-description-request");
  get("/rdm/taxonomy-description-request");
  const std::size_t size = get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=3").body.size();
  get("/rdm/rd-request?ql=gatherer&scope=since+Thu,+01+Jan+2015+00:00:00+GMT&view-hits=2");
  EXPECT_EQ(stop(), 0);
  const std::string start_of_line = R"(127\.0\.0\.1 - - \[\d\d/[A-Z][a-z][a-z]/\d{4}:\d\d:\d\d:\d\d -0000\] )";
  const std::regex expected(start_of_line + "\"STATUS OK sent\" - -\n" + start_of_line + "\"SERVER sent\" - -\n" +
                            start_of_line + "\"Sent Schema\" - -\n" + start_of_line + "\"Sent Taxonomy\" - -\n" +
                            start_of_line + "\"3 RDs Transfered\" - " + std::to_string(size) + "\n" + start_of_line +
                            "\"2 RDs Transfered since Thu, 01 Jan 2015 00:00:00 GMT\" - \\d+\n");
  EXPECT_TRUE(std::regex_match(transactions(), expected)) << transactions();
}

TEST_F(Messages, EachRequestLeavesAnAccessLine) {
  start();
  get("/rdm/status-request");
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(std::regex_match(
      access(), std::regex(R"(127\.0\.0\.1 - - \[[^\]]+\] "GET /rdm/status-request HTTP/1\.1" 200 79 "-" "-")"
                           "\n")))
      << access();
}

class Operation : public ServiceTest {};

TEST_F(Operation, TheExamplesPassTheCheck) {
  run("mkdir -p " + directory_.path("tmp"));
  directory_.write("csid.conf", filled("csid.conf.in", shared->path()));
  const std::string config = directory_.write("rdm.conf", filled("rdm.conf.in", directory_.path()));
  support::RdmdProcess server({"--check", "--config", config});
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(server.errors(), "");
  EXPECT_EQ(server.output(), config + ": the configuration is valid\n");
}

TEST_F(Operation, TheServerEndsWithAllItsLogsWritten) {
  start();
  get("/rdm/status-request");
  EXPECT_EQ(stop(), 0);
  EXPECT_NE(transactions().find("\"STATUS OK sent\" - -\n"), std::string::npos);
  EXPECT_NE(support::read_file(directory_.path("debug.log")).find("RDM server is on-line.\n"), std::string::npos);
}

TEST_F(Operation, AConfigurationThatTheServiceRefusesEndsTheServer) {
  const struct {
    const char *text, *line, *service;
  } cases[] = {
      {"csid-config=\"/nowhere\"\ncsid-default=\"x\"\n", ": error: \"bindir\" is required\n",
       "Parameter 'bindir' required by rdm-init in configuration file.\n"},
      {"bindir=\"/usr/bin\" csid-config=\"/nowhere\"\n", ": error: \"csid-default\" is required\n",
       "Parameter 'csid-default' required by rdm-init in configuration file.\n"},
      {"bindir=\"/usr/bin\ncsid-default=\"x\"\n", ":1: error: the quote after bindir= is not closed\n",
       "Parameter 'csid-config' required by rdm-init in configuration file.\n"},
  };
  for (const auto &row : cases) {
    const std::string config = directory_.write("rdm.conf", row.text);
    support::RdmdProcess server({"--listen", "127.0.0.1:0", "--config", config});
    EXPECT_EQ(server.wait(), 1);
    const std::string errors = server.errors();
    EXPECT_NE(errors.find("[error] rdmd: " + config + row.line), std::string::npos) << errors;
    EXPECT_NE(errors.find(row.service), std::string::npos) << errors;
    EXPECT_NE(errors.find("[error] rdmd: " + config + ": the plug-in refused its configuration\n"), std::string::npos)
        << errors;
    EXPECT_EQ(errors.find("listening"), std::string::npos);
  }
}

TEST_F(Operation, AConfigurationThatIsNotThereEndsTheServer) {
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--config", directory_.path("none.conf")});
  EXPECT_EQ(server.wait(), 1);
  const std::string errors = server.errors();
  EXPECT_NE(errors.find(directory_.path("none.conf") + ": error: cannot be read: No such file or directory\n"),
            std::string::npos)
      << errors;
  EXPECT_NE(errors.find("[error] rdmd: rdm-init: config not readable?\n"), std::string::npos) << errors;
}

}  // namespace
