#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog_files.h"

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
  EXPECT_EQ(finished.errors, "minidba: URL is required; see \"minidba delete --help\"\n");
}

}  // namespace
