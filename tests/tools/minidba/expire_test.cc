// SPDX-License-Identifier: MIT
#include <ctime>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/catalog_files.h"
#include "tools/minidba/verb.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::Key;

class Expire : public testing::Test {
 protected:
  static std::string rd_until(const std::string &url, const std::string &expires) {
    return rd(url, {{"title", url}, {"rd-expires", expires}});
  }
  static std::string in(long seconds) {
    char text[64];
    cs_time2str(std::time(nullptr) + seconds, text, sizeof text);
    return text;
  }
  CatalogFiles catalog_;
};

TEST_F(Expire, DropsExpiredDescriptions) {
  const struct {
    const char *url;
    std::string expires;
    bool stays;
  } rows[] = {
      {"http://localhost/a-minute-ago", in(-60), false},
      {"http://localhost/in-an-hour", in(3600), true},
      {"http://localhost/day", "2 Jan 1999", false},
      {"http://localhost/two-digits", "2 Jan 99 10:30 PST", false},
      {"http://localhost/offset", "Sun, 3 Jan 1999 10:30:00 +0200", false},
      {"http://localhost/word", "soon", true},
      {"http://localhost/no-year", "2 Jan", true},
      {"http://localhost/number", "915148800", true},
      {"http://localhost/before-all", "1 Jan 1969", true},
  };
  std::string stream = rd("http://localhost/never", {{"title", "Never"}});
  for (const auto &row : rows) stream += rd_until(row.url, row.expires);
  ASSERT_EQ(catalog_.update(stream).out, "10\n");
  const Finished finished = catalog_.run({"expire"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "4\n");
  EXPECT_EQ(finished.errors, "");
  const std::string left = catalog_.run({"list", "--format", "tsv"}).out;
  for (const auto &row : rows) EXPECT_EQ(left.find(row.url) != std::string::npos, row.stays) << row.url;
  EXPECT_NE(left.find("http://localhost/never"), std::string::npos);
  EXPECT_EQ(catalog_.run({"expire"}).out, "0\n");
}

TEST_F(Expire, ADroppedDescriptionComesBackUnderANewNumber) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd_until("http://localhost/2", "2 Jan 1999"));
  ASSERT_EQ(catalog_.run({"expire"}).out, "1\n");
  EXPECT_EQ(catalog_.update(rd("http://localhost/2", {{"title", "Two"}})).errors,
            "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000001"), Key("00000003"))) << "its number is not used again";
}

TEST_F(Expire, NothingToDropLeavesTheFileAlone) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  const std::string before = support::read_file(catalog_.path());
  EXPECT_EQ(catalog_.run({"expire"}).out, "0\n");
  EXPECT_EQ(support::read_file(catalog_.path()), before);
}

TEST_F(Expire, GoesByTheClock) {
  catalog_.update(rd_until("http://localhost/in-an-hour", in(3600)));
  for (const auto &[seconds, count] : {std::pair{0, "0\n"}, {3000, "0\n"}, {4000, "1\n"}}) {
    const auto clock = [seconds = seconds] { return std::time(nullptr) + seconds; };
    EXPECT_EQ(run_verb({"-d", catalog_.path(), "expire", "--dry-run"}, "", true, clock).out, count) << seconds;
  }
}

}  // namespace
