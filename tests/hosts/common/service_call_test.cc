// SPDX-License-Identifier: MIT
#include "hosts/common/service_call.h"

#include <string>

#include <gtest/gtest.h>

#include "hosts/common/host_table.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/refused_new.h"

using namespace rdm;

namespace {

using hosts::ServiceAnswer;
using hosts::ServiceRequest;

/// The allocations of the table's functions.
long host_allocations = 0;

qxapi_host counting_host() {
  qxapi_host host = *qxapi_posix_host();
  host.alloc = [](size_t n) { return ++host_allocations, qxapi_posix_host()->alloc(n); };
  host.realloc = [](void *p, size_t n) { return ++host_allocations, qxapi_posix_host()->realloc(p, n); };
  host.strdup = [](const char *text) { return ++host_allocations, qxapi_posix_host()->strdup(text); };
  return host;
}

/// Service is the plug-in with a catalog service that has a server description.
class Service {
 public:
  Service() {
    hosts::bind_host([](const hosts::Report &) {}, counting_host());
    directory_.write("server.rdm", "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n@SERVER { -\n}\n");
    directory_.write("csid.conf", "csid=\"x-catalog://localhost:8380/a\" server-description=\"" +
                                      directory_.path("server.rdm") + "\"\n");
    const std::string config = directory_.write(
        "rdm.conf", "bindir=\"/nowhere\" csid-config=\"" + directory_.path("csid.conf") + "\" logfile=\"" +
                        directory_.path("rdm.log") + "\"\ncsid-default=\"x-catalog://localhost:8380/a\"\n");
    EXPECT_EQ(plugin_.init(config), "");
  }
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service() {
    hosts::run_exits();
    qxapi_bind(nullptr);
  }

  /// call returns the answer to a request as a client makes it, and sets the allocations of the call.
  ServiceAnswer call(const std::string &uri) {
    ServiceRequest request;
    request.client = {{"ip", "192.0.2.7"}};
    request.line = {{"method", "GET"}, {"uri", uri}};
    request.headers = {{"host", "localhost:8380"}, {"user-agent", "client/1.0"}, {"accept", "*/*"}};
    request.variables = {{hosts::request_id_variable, "0123456789abcdef"}};
    const long before = host_allocations + support::calls_of_new();
    ServiceAnswer answer = hosts::call_service(plugin_, std::move(request));
    allocations = host_allocations + support::calls_of_new() - before;
    return answer;
  }

  long allocations = 0;

 private:
  support::TemporaryDirectory directory_;
  hosts::Plugin plugin_{support::in_build("lib/librdm.so")};
};

TEST(ServiceCall, AStatusRequestTakesFewAllocations) {
  Service service;
  for (int turn = 0; turn < 3; ++turn) {
    const ServiceAnswer answer = service.call("/rdm/status-request");
    EXPECT_EQ(answer.outcome, hosts::Outcome::answered);
    EXPECT_EQ(answer.labels.type, "status-request");
    ASSERT_EQ(answer.pieces.size(), 1u);
    EXPECT_EQ(answer.pieces[0].bytes,
              "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n\n\nOnline.\n");
    EXPECT_GT(service.allocations, 0);
    EXPECT_LE(service.allocations, 25);
  }
}

TEST(ServiceCall, ADescriptionTakesFewAllocations) {
  Service service;
  const ServiceAnswer answer = service.call("/rdm/server-description-request");
  EXPECT_EQ(answer.outcome, hosts::Outcome::answered);
  ASSERT_EQ(answer.pieces.size(), 1u);
  EXPECT_TRUE(answer.pieces[0].file);
  EXPECT_LE(service.allocations, 30);
}

}  // namespace
