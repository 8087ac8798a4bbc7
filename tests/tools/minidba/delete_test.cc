// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::Key;

class Delete : public testing::Test {
 protected:
  Delete() {
    std::string stream;
    for (int i = 1; i <= 4; ++i) stream += rd("http://localhost/" + std::to_string(i), {{"title", std::to_string(i)}});
    catalog_.update(stream);
  }
  CatalogFiles catalog_;
};

TEST_F(Delete, RemovesByUrl) {
  const Finished finished = catalog_.run({"delete", "http://localhost/2", "http://localhost/4"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(finished.errors, "minidba: 2 deleted, 0 not there\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000001"), Key("00000003")));
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 2 descriptions, no index\n");
}

TEST_F(Delete, NamesWhatIsNotThereAndRemovesTheRest) {
  const Finished finished = catalog_.run({"delete", "http://localhost/9", "http://localhost/1", "http://localhost/1"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(finished.errors,
            "minidba: no description http://localhost/9\nminidba: no description http://localhost/1\n"
            "minidba: 1 deleted, 2 not there\n");
  EXPECT_EQ(catalog_.records().size(), 3u);
}

TEST_F(Delete, TakesUrlsFromTheLinesOfStandardInput) {
  const Finished finished =
      catalog_.run({"--json", "delete", "-", "http://localhost/4"}, "http://localhost/1\n\nhttp://localhost/3");
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "{\"verb\":\"delete\",\"dry-run\":false,\"deleted\":3,\"not-there\":0}\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000002")));
}

TEST_F(Delete, TakesNumbersAsGetDoes) {
  catalog_.update(rd("3", {{"title", "a URL that looks like a number"}}) + rd("77", {{"title", "another"}}));
  const Finished finished = catalog_.run({"delete", "3", "77", "2", "2", "99"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "3\n");
  EXPECT_EQ(finished.errors,
            "minidba: no description 2\nminidba: no description 99\nminidba: 3 deleted, 2 not there\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000001"), Key("00000004"), Key("00000005")));
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 3 descriptions, no index\n");
}

// A list that was edited on Windows, or came by mail, ends its lines with CR LF.
TEST_F(Delete, TakesLinesThatEndWithCrLf) {
  const Finished finished = catalog_.run({"delete", "-"}, "http://localhost/1\r\n\r\n3\r\nhttp://localhost/4\r");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "minidba: 3 deleted, 0 not there\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000002")));
}

TEST_F(Delete, ItsNumbersAreNotUsedAgain) {
  catalog_.run({"delete", "http://localhost/4"});
  catalog_.update(rd("http://localhost/5", {{"title", "5"}}));
  EXPECT_EQ(catalog_.records().rbegin()->first, "00000005");
}

TEST_F(Delete, ADryRunRemovesNothing) {
  const Finished finished = catalog_.run_read_only({"delete", "--dry-run", "http://localhost/4"});
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(finished.errors, "minidba: dry run: 1 deleted, 0 not there\n");
  EXPECT_EQ(catalog_.records().size(), 4u);
}

TEST_F(Delete, NeedsAUrl) {
  const Finished finished = catalog_.run({"delete"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: NUMBER|URL is required; see \"minidba delete --help\"\n");
}

}  // namespace
