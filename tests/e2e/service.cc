// SPDX-License-Identifier: MIT
#include "e2e/service.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "dba/dba.h"
#include "support/directories.h"

namespace rdm::e2e {
namespace {

const std::string bin = support::in_build("bin");

std::string replaced(std::string text, const std::string &what, const std::string &by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

std::uint32_t big_endian(const std::string &bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return number;
}

}  // namespace

std::string run(const std::string &command) {
  // NOLINTNEXTLINE(cert-env33-c): the command is the test's own
  std::FILE *pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    ADD_FAILURE() << command;
    return {};
  }
  std::string output;
  std::array<char, 4096> block;
  for (std::size_t got = 0; (got = std::fread(block.data(), 1, block.size(), pipe)) > 0;)
    output.append(block.data(), got);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return output;
}

std::string filled(const std::string &name, const std::string &directory) {
  std::string text = support::read_file(examples::example(name));
  text = replaced(text, "@VAR@", directory);
  text = replaced(text, "@BIN@", bin);
  return replaced(text, "@EXAMPLES@", support::in_source("examples"));
}

void make_catalog(const std::string &directory, const std::string &name, const std::string &descriptions) {
  const std::string database = directory + "/" + name + ".db";
  run(bin + "/minidba -d " + database + " update < " + descriptions);
  run(bin + "/minidba -d " + database + " -i " + database + ".idx index");
}

std::vector<IndexEntry> read_index(const std::string &path) {
  const std::string bytes = support::read_file(path);
  std::vector<IndexEntry> entries;
  for (std::size_t at = 8; at + 20 <= bytes.size(); at += 20)
    entries.push_back({big_endian(bytes, at), big_endian(bytes, at + 8)});
  return entries;
}

std::string record(const std::string &database, std::uint32_t number) {
  std::array<char, 9> key;
  std::snprintf(key.data(), key.size(), "%08x", number);
  DB *db = dba_open(database.c_str(), "r");
  const DBT wanted{key.data(), 8};
  DBT found{};
  if (db == nullptr || dba_get(db, &wanted, &found) != 0) {
    ADD_FAILURE() << "no record " << key.data() << " in " << database;
    return {};
  }
  std::string bytes(static_cast<const char *>(found.data), found.size);
  dba_close(db);
  return bytes;
}

std::string attribute(const std::string &name, const std::string &value) {
  return name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
}

std::string answer_header(const std::string &type, const std::string &message) {
  return "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", type) +
         (message.empty() ? "" : attribute("rdm-error-message", message)) + "}\n\n\n";
}

std::string refusal(const std::string &text) { return answer_header("status-response", text) + "\n\n" + text + "\n\n"; }

std::string request_header(const std::string &type, const std::string &csid, const std::string &more) {
  return "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", type) +
         (csid.empty() ? "" : attribute("catalog-service-id", csid)) + more + "}\n\n";
}

std::string rd_request(const std::string &csid, const std::string &attributes) {
  return request_header("rd-request", csid, attribute("rdm-query-language", "gatherer")) + "@RDMQUERY { -\n" +
         attributes + "}\n";
}

std::unique_ptr<support::TemporaryDirectory> ServiceTest::shared;

void ServiceTest::SetUpTestSuite() {
  shared = std::make_unique<support::TemporaryDirectory>();
  for (const char *name : {"rfc", "classics"})
    make_catalog(shared->path(), name, examples::example(std::string(name) + "/rds.soif"));
}

void ServiceTest::share_large_catalog(std::size_t records) {
  shared = std::make_unique<support::TemporaryDirectory>();
  std::string text;
  for (std::size_t i = 0; i < records; ++i)
    text += "@FILE { x://large/" + std::to_string(i) + "\n" +
            attribute("description", std::string(3000, static_cast<char>('a' + i % 26))) + "}\n";
  make_catalog(shared->path(), "rfc", shared->write("large.soif", text));
}

void ServiceTest::TearDownTestSuite() { shared.reset(); }

void ServiceTest::start(const std::string &services, const std::vector<std::string> &more) {
  run("mkdir -p " + directory_.path("tmp"));
  const std::string list =
      directory_.write("csid.conf", services.empty() ? filled("csid.conf.in", shared->path()) : services);
  const std::string config = directory_.write("rdm.conf", filled("rdm.conf.in", directory_.path()));
  std::vector<std::string> arguments = {"--listen", "127.0.0.1:0", "--threads",    "8",
                                        "--config", config,        "--access-log", directory_.path("access")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  server_ = std::make_unique<support::RdmdProcess>(arguments);
  port_ = server_->port();
}

int ServiceTest::stop() {
  server_->signal(SIGTERM);
  return server_->wait();
}

support::HttpResponse ServiceTest::post(const std::string &target, const std::string &body, const std::string &fields) {
  support::HttpClient client(port_);
  client.send("POST " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n" + fields + "\r\n" + body);
  return client.receive();
}

std::string ServiceTest::expected(const std::string &database, const std::vector<IndexEntry> &entries) {
  std::string text = answer_header("rd-response", entries.empty() ? "0 results." : "");
  for (const IndexEntry &entry : entries) text += record(database, entry.number);
  return text;
}

}  // namespace rdm::e2e
