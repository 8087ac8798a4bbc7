// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class Get : public testing::Test {
 protected:
  Get() {
    catalog_.put("00000001", one_);
    catalog_.put("0000000a", ten_);
  }
  const std::string one_ = rd("http://localhost/1", {{"title", "One"}});
  const std::string ten_ = rd("http://localhost/10", {{"title", "Ten"}, {"author", "A"}});
  CatalogFiles catalog_;
};

TEST_F(Get, PrintsARecordAsItIsKept) {
  for (const char *word : {"10", "http://localhost/10"}) {
    const Finished finished = catalog_.run({"get", word});
    EXPECT_EQ(finished.status, 0) << word;
    EXPECT_EQ(finished.out, ten_) << word;
    EXPECT_EQ(finished.errors, "") << word;
  }
  EXPECT_EQ(catalog_.run({"get", "http://localhost/10", "1"}).out, ten_ + one_);
}

TEST_F(Get, ADashStandsForTheLinesOfStandardInput) {
  const Finished finished = catalog_.run({"get", "10", "-"}, "http://localhost/1\r\n\n2\n10");
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, ten_ + one_ + ten_);
  EXPECT_EQ(finished.errors, "minidba: no description 2\n");
}

TEST_F(Get, AUrlMayLookLikeANumber) {
  catalog_.put("00000002", rd("77", {{"title", "Seventy-seven"}}));
  EXPECT_EQ(catalog_.run({"get", "77"}).out, rd("77", {{"title", "Seventy-seven"}}));
}

TEST_F(Get, ReportsMissingDescriptionsAndPrintsTheRest) {
  const Finished absent = catalog_.run({"get", "2", "1", "http://localhost/2", "0", "4294967297"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.out, one_);
  EXPECT_EQ(absent.errors,
            "minidba: no description 2\nminidba: no description http://localhost/2\nminidba: no description 0\n"
            "minidba: no description 4294967297\n");
}

TEST_F(Get, PrintsJson) {
  catalog_.put("00000003",
               rd("http://localhost/3", {{"title", "\"3\"\t\xff\xc3\xa9"}, {"x", "1"}, {"x", "2"}, {"x", "3"}}));
  EXPECT_EQ(
      catalog_.run({"get", "1", "--json"}).out,
      "{\"number\":1,\"template\":\"DOCUMENT\",\"url\":\"http://localhost/1\",\"attributes\":{\"title\":\"One\"}}\n");
  const std::string three = catalog_.run({"get", "3", "--json"}).out;
  EXPECT_NE(three.find("\"title\":\"\\\"3\\\"\\t\xef\xbf\xbd\xc3\xa9\""), std::string::npos) << three;
  EXPECT_NE(three.find("\"x\":[\"1\",\"2\",\"3\"]"), std::string::npos) << three;
}

TEST_F(Get, ADamagedRecordIsPrintedButNotAsJson) {
  catalog_.put("00000002", "no object");
  EXPECT_EQ(catalog_.run({"get", "2"}).out, "no object");
  const Finished finished = catalog_.run({"get", "2", "--json"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: damaged record 2 in " + catalog_.path() +
                                 ": it is not a SOIF object (--skip-damaged of minidba leaves it out)\n");
}

}  // namespace
