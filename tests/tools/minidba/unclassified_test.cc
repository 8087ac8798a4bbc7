// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class Unclassified : public testing::Test {
 protected:
  CatalogFiles catalog_;
};

TEST_F(Unclassified, ListsUrlsInTheOrderOfTheIndex) {
  catalog_.put("00000001", rd("http://localhost/late", {{"rd-last-changed", "Thu, 01 Jan 2015 00:00:00 GMT"}}));
  catalog_.put("00000002", rd("http://localhost/early", {{"rd-last-changed", "Wed, 01 Jan 2014 00:00:00 GMT"}}));
  catalog_.put("00000003", rd("http://localhost/plain", {{"classification", "a"}}));
  catalog_.put("00000004", rd("http://localhost/numbered", {{"classification-12", "a"}}));
  catalog_.put("00000005", rd("http://localhost/upper", {{"Classification", "a"}}));
  catalog_.put("00000006", rd("http://localhost/similar", {{"classifications", "a"}, {"classification-x", "b"}}));
  ASSERT_EQ(catalog_.index().out, "6\n");
  Finished finished = catalog_.run({"unclassified"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "http://localhost/similar\nhttp://localhost/early\nhttp://localhost/late\n");
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(catalog_.run({"unclassified", "--json"}).out,
            "[\n\"http://localhost/similar\",\n\"http://localhost/early\",\n\"http://localhost/late\"\n]\n");
}

TEST_F(Unclassified, SkipsIndexEntriesWithoutARecord) {
  catalog_.put("00000001", rd("http://localhost/1", {{"title", "One"}}));
  catalog_.put("00000002", rd("http://localhost/2", {{"title", "Two"}}));
  ASSERT_EQ(catalog_.index().out, "2\n");
  catalog_.remove("00000001");
  EXPECT_EQ(catalog_.run({"unclassified"}).out, "http://localhost/2\n");
}

TEST_F(Unclassified, AnIndexThatIsMissingOrCorruptIsAnError) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  const std::string path = catalog_.path(".idx");
  Finished finished = catalog_.run({"unclassified"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: cannot read " + path + ": No such file or directory\n");
  const struct {
    std::string bytes, reason;
  } rows[] = {
      {"", "not an index: "},
      {std::string("\x3E\xB1\xCA\x0F\0\0\0\0", 8), "not an index: "},
      {std::string("\x3E\xB1\xCA\x0E\0\0\0", 7), "not an index: "},
      {std::string("\x3E\xB1\xCA\x0E\0\0\0\1", 8), "not as long as its 1 entry: "},
      {std::string("\x3E\xB1\xCA\x0E\xFF\xFF\xFF\xFF", 8), "not as long as its 4294967295 entries: "},
      {std::string("\x3E\xB1\xCA\x0E\0\0\0\0x", 9), "not as long as its 0 entries: "},
  };
  for (const auto &row : rows) {
    support::write_file(path, row.bytes);
    finished = catalog_.run({"unclassified"});
    EXPECT_EQ(finished.status, 2) << row.reason;
    EXPECT_EQ(finished.out, "") << row.reason;
    EXPECT_EQ(finished.errors, "minidba: " + row.reason + path + "\n");
  }
}

}  // namespace
