// SPDX-License-Identifier: MIT
#include "faults/requests.h"

#include <unistd.h>

#include <algorithm>
#include <span>

#include "hosts/common/host_table.h"
#include "support/directories.h"

namespace rdm::faults {
namespace {

using support::soif;

constexpr char csid[] = "x-catalog://localhost:80/c";
constexpr uint32_t descriptions = 40;

std::string message(const std::string &type, const std::string &scope) {
  return soif("RDMHEADER", "-",
              {{"rdm-version", "1.0"},
               {"rdm-type", type},
               {"rdm-query-language", "gatherer"},
               {"catalog-service-id", csid}}) +
         "\n" + (scope.empty() ? "" : soif("RDMQUERY", "-", {{"scope", scope}, {"view-attributes", "title,text"}}));
}

void make_catalog(const support::TemporaryDirectory &directory) {
  support::Catalog catalog(directory, "catalog.db");
  std::vector<std::pair<uint32_t, uint32_t>> entries;
  for (uint32_t number = 1; number <= descriptions; ++number) {
    // Those longer than a page are looked up at each request; the places of the others are known.
    const size_t length = number % 4 == 0 ? 5000 : 1000;
    catalog.put(number, soif("FILE", "http://localhost/" + std::to_string(number),
                             {{"title", std::to_string(number)}, {"text", std::string(length, 'x')}}));
    entries.emplace_back(number, number);
  }
  catalog.index(entries);
}

/// configure writes the service's configuration and returns its path.
std::string configure(const support::TemporaryDirectory &directory, const std::string &logs) {
  const std::string server =
      directory.write("server.rdm", "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n@SERVER { -\n}\n");
  const std::string services = directory.write(
      "csid.conf", "csid=\"" + std::string(csid) + "\" catalog-database=\"" + directory.path("catalog.db") +
                       "\" server-description=\"" + server + "\" schema-description=\"" + server +
                       "\" taxonomy-description=\"" + server + "\"\n");
  return directory.write(
      "rdm.conf", "bindir=\"/nowhere\" csid-config=\"" + services + "\" csid-default=\"" + csid + "\" " + logs + "\n");
}

std::string sent_by(const hosts::Piece &piece) {
  std::string part(static_cast<size_t>(piece.length), '\0');
  if (piece.records) {
    hosts::RecordCursor cursor(*piece.records);
    for (size_t done = 0; done < part.size();) {
      const ssize_t got = cursor.read(std::span(part).subspan(done));
      if (got <= 0) return part.substr(0, done);
      cursor.skip(got);
      done += static_cast<size_t>(got);
    }
  } else if (piece.file) {
    part.resize(static_cast<size_t>(::pread(piece.file->get(), part.data(), part.size(), piece.offset)));
  }
  return piece.is_bytes() ? piece.bytes : part;
}

std::string sent_by(hosts::Exchange &exchange) {
  std::string bytes;
  for (const hosts::Piece &piece : exchange.queue().take()) bytes += sent_by(piece);
  return bytes;
}

void fill(hosts::Exchange &exchange, const SampleRequest &request) {
  exchange.client("ip", "127.0.0.1");
  exchange.line("method", request.method);
  exchange.line("uri", request.uri);
  if (!request.query.empty()) exchange.line("query", request.query);
  if (!request.body.empty()) exchange.header("content-length", std::to_string(request.body.size()));
  exchange.input(request.body);
}

}  // namespace

void PrintTo(const SampleRequest &request, std::ostream *out) { *out << request.name; }

std::string name_of(const ::testing::TestParamInfo<SampleRequest> &info) {
  std::string name = info.param.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

const std::vector<SampleRequest> &requests() {
  static const std::vector<SampleRequest> all = {
      {"status by GET", "GET", "/rdm/status-request", "", ""},
      {"status by POST", "POST", "/rdm/incoming", "", message("status-request", "")},
      {"everything by GET", "GET", "/rdm/rd-request", "ql=gatherer&scope=all&view-attributes=title,text", "",
       descriptions},
      {"changes by POST", "POST", "/rdm/rd-request", "", message("rd-request", "since Thu, 01 Jan 1970 00:00:20 GMT"),
       descriptions},
      {"a server description", "GET", "/rdm/server-description-request", "", "", 3},
      {"a schema description", "GET", "/rdm/schema-description-request", "", "", 3},
      {"a taxonomy", "GET", "/rdm/taxonomy-description-request", "", "", 3},
      {"a wrong scope", "POST", "/rdm/rd-request", "", message("rd-request", "some")},
      {"a wrong version", "POST", "/rdm/incoming", "",
       soif("RDMHEADER", "-", {{"rdm-version", "9.9"}, {"rdm-type", "status-request"}}) + "\n\n"},
      {"a wrong type", "POST", "/rdm/incoming", "", message("nonsense", "")},
      {"a wrong method", "PUT", "/rdm/incoming", "", ""},
      {"no message", "POST", "/rdm/incoming", "", "nonsense"},
  };
  return all;
}

Service::Service(const qxapi_host &host, const long &live_blocks, const std::string &logs)
    : live_blocks_(live_blocks), plugin_(support::in_build("lib/librdm.so.1")) {
  hosts::bind_host([](const hosts::Report &) {}, host);
  make_catalog(directory_);
  EXPECT_EQ(plugin_.init(configure(directory_, logs)), "");
}

Service::~Service() {
  hosts::run_exits();
  qxapi_bind(nullptr);
}

Answer Service::serve(const SampleRequest &request, const std::function<void()> &arm,
                      const std::function<void()> &disarm) {
  hosts::Exchange exchange;
  fill(exchange, request);
  if (arm) arm();
  const hosts::Outcome outcome = hosts::serve(plugin_, exchange);
  if (disarm) disarm();
  return {outcome, sent_by(exchange), exchange.delimited()};
}

Answer Service::answer(const SampleRequest &request, const std::function<void()> &arm,
                       const std::function<void()> &disarm) {
  const long before = live_blocks_;
  Answer answer = serve(request, arm, disarm);
  // The service keeps a catalog open, unless something failed: let it open the catalog again.
  serve(request);
  answer.blocks_lost = live_blocks_ - before;
  return answer;
}

void Service::change_catalog() {
  const std::string index = directory_.path("catalog.db.idx");
  support::write_file(index, support::read_file(index));
}

bool is_honest(const Answer &answer, const Answer &right) {
  if (answer.outcome != hosts::Outcome::answered || !answer.delimited) return true;
  return answer.body == right.body || answer.body.find("rdm-error-message{") != std::string::npos;
}

}  // namespace rdm::faults
