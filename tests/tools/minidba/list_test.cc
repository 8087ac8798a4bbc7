// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class List : public testing::Test {
 protected:
  List() {
    catalog_.put("0000000a", ten_);
    catalog_.put("00000001", one_);
    catalog_.put("00000002", two_);
  }
  const std::string one_ =
      rd("http://localhost/1", {{"rd-last-changed", "Thu, 01 Jan 2015 00:00:00 GMT"}, {"title", "One"}});
  const std::string two_ =
      rd("http://localhost/2", {{"title", "Two"}, {"author-1", "A\tB"}, {"author-2", "C\\D\nE\rF"}});
  const std::string ten_ = rd("http://localhost/10", {{"rd-last-changed", "Fri, 01 Jan 2016 00:00:00 GMT"}});
  CatalogFiles catalog_;
};

TEST_F(List, PrintsRecordsByNumber) {
  const Finished finished = catalog_.run({"list"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, one_ + two_ + ten_);
  EXPECT_EQ(finished.errors, "");
}

TEST_F(List, PrintsOnlyDescriptionsChangedSinceATime) {
  const struct {
    const char *since;
    std::string out;
  } rows[] = {
      {"Thu, 01 Jan 2015 00:00:00 GMT", one_ + ten_},
      {"@1420070401", ten_},
      {"1 Jan 2017", ""},
      {"2 Jan 1970", one_ + ten_},
      {"100 years ago", one_ + two_ + ten_},
  };
  for (const auto &row : rows) EXPECT_EQ(catalog_.run({"list", "--since", row.since}).out, row.out) << row.since;
}

TEST_F(List, PrintsOnlyTheRequestedAttributes) {
  EXPECT_EQ(catalog_.run({"list", "--attributes", "Title"}).out, rd("http://localhost/1", {{"title", "One"}}) +
                                                                     rd("http://localhost/2", {{"title", "Two"}}) +
                                                                     rd("http://localhost/10", {}));
}

TEST_F(List, JsonIsAnArrayWithALineForEachDescription) {
  const std::string expected =
      "[\n{\"number\":1,\"template\":\"DOCUMENT\",\"url\":\"http://localhost/1\",\"attributes\":{\"title\":\"One\"}},\n"
      "{\"number\":2,\"template\":\"DOCUMENT\",\"url\":\"http://localhost/2\",\"attributes\":{\"title\":\"Two\"}},\n"
      "{\"number\":10,\"template\":\"DOCUMENT\",\"url\":\"http://localhost/10\",\"attributes\":{}}\n]\n";
  EXPECT_EQ(catalog_.run({"list", "--attributes", "title", "--format", "json"}).out, expected);
  EXPECT_EQ(catalog_.run({"list", "--attributes", "title", "--json"}).out, expected);
  EXPECT_EQ(catalog_.run({"list", "--since", "1 Jan 2017", "--json"}).out, "[]\n");
}

TEST_F(List, TableColumnsAreSeparatedByTabs) {
  EXPECT_EQ(catalog_.run({"list", "--format", "tsv"}).out,
            "1\thttp://localhost/1\tThu, 01 Jan 2015 00:00:00 GMT\tOne\n"
            "2\thttp://localhost/2\t\tTwo\n"
            "10\thttp://localhost/10\tFri, 01 Jan 2016 00:00:00 GMT\t\n");
  EXPECT_EQ(catalog_.run({"list", "--format", "tsv", "--attributes", "author,author-2"}).out,
            "1\thttp://localhost/1\t\t\n"
            "2\thttp://localhost/2\tA\\tB; C\\\\D\\nE\\rF\tC\\\\D\\nE\\rF\n"
            "10\thttp://localhost/10\t\t\n");
}

TEST_F(List, RefusesOtherTimesAndFormats) {
  Finished finished = catalog_.run({"list", "--since", "31 Feb 2026"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: --since: no such time: 31 Feb 2026\n");
  finished = catalog_.run({"list", "--format", "xml"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: --format: xml not in {soif,json,tsv}; see \"minidba list --help\"\n");
}

}  // namespace
