// SPDX-License-Identifier: MIT
/// What the server tells of a request before the plug-in has seen it.

#include "hosts/rdmd/front/job.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

hosts::ServiceRequest asked(const std::string &uri, const std::string &query = "", const std::string &body = "") {
  hosts::ServiceRequest request;
  request.client = {{"ip", "192.0.2.1"}};
  request.line = {{"method", "GET"}, {"uri", uri}};
  if (!query.empty()) request.line.push_back({"query", query});
  request.body = body;
  return request;
}

TEST(RequestCost, HarvestsAreKnownByTheirPathQueryOrBodyUnlessTheyAreOfAFew) {
  const struct {
    const char *uri, *query, *body;
    bool prompt;
  } rows[] = {
      {"/rdm/status-request", "", "", true},
      {"/rdm/schema-description-request", "", "", true},
      {"/rdm/rd-request", "", "", false},
      {"/rdm/RD-Request", "", "", false},
      {"/rdm/incoming", "type=status-request", "", true},
      {"/rdm/incoming", "type=rd-request", "", false},
      {"/rdm/incoming", "type=RD-REQUEST&ql=x", "", false},
      {"/rdm/Incoming", "", "@RDMHEADER { -\nrdm-type{10}:\trd-request\n}\n", false},
      {"/rdm/incoming", "", "@RDMHEADER { -\nrdm-type{14}:\tstatus-request\n}\n", true},
      {"/rdm/rd-request", "ql=gatherer&view-hits=1", "", true},
      {"/rdm/rd-request", "view-hits=9&scope=all", "", true},
      {"/rdm/incoming", "type=rd-request&view-hits=2", "", true},
      {"/rdm/rd-request", "view-hits=10", "", false},
      {"/rdm/rd-request", "preview-hits=1", "", false},
      {"/rdm/rd-request", "view-hits=1&view-hits=1000", "", false},
      {"/rdm/rd-request", "view-hits=1000&view-hits=1", "", false},
      {"/rdm/rd-request", "view-hits=0", "", false},
      {"/rdm/rd-request", "view-hits=", "", false},
      {"/rdm/rd-request", "view-hits=-1", "", false},
      {"/rdm/", "", "", true},
      {"/rdm", "", "", true},
  };
  for (const auto &row : rows)
    EXPECT_EQ(rdmd::is_prompt(asked(row.uri, row.query, row.body)), row.prompt) << row.uri << row.query << row.body;
}

TEST(RequestCost, ATypeFarBehindTheStartOfABodyIsNotLookedFor) {
  EXPECT_TRUE(rdmd::is_prompt(asked("/rdm/incoming", "", std::string(2000, ' ') + "rd-request")));
}

TEST(RequestDescription, HasLineClientAndIdWithoutControlCharacters) {
  hosts::ServiceRequest request = asked("/rdm/a\"\nb");
  EXPECT_EQ(rdmd::describe(request), "\"GET /rdm/a\\\"\\nb\" (client 192.0.2.1)");
  request.variables = {{hosts::request_id_variable, "0123"}};
  EXPECT_EQ(rdmd::describe(request), "\"GET /rdm/a\\\"\\nb\" (client 192.0.2.1, request 0123)");
}

}  // namespace
