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

TEST_F(Delete, TakesUrlsAndNumbersAndNamesThoseWithoutADescription) {
  catalog_.update(rd("3", {{"title", "a URL that looks like a number"}}) + rd("77", {{"title", "another"}}));
  const struct {
    std::vector<std::string> words;
    std::string input, out, errors;
  } rows[] = {
      {{"http://localhost/2", "77"}, "", "2\n", "minidba: 2 deleted, 0 not there\n"},
      {{"3", "3", "99", "3", "http://localhost/2"},
       "",
       "2\n",
       "minidba: no description 99\nminidba: no description 3\nminidba: no description http://localhost/2\n"
       "minidba: 2 deleted, 3 not there\n"},
      {{"-", "http://localhost/4"},
       "http://localhost/1\n\nhttp://localhost/4",
       "2\n",
       "minidba: no description http://localhost/4\nminidba: 2 deleted, 1 not there\n"},
  };
  for (const auto &row : rows) {
    std::vector<std::string> words = row.words;
    words.insert(words.begin(), "delete");
    const Finished finished = catalog_.run(words, row.input);
    EXPECT_EQ(finished.status, row.errors.ends_with(" 0 not there\n") ? 0 : 1);
    EXPECT_EQ(finished.out, row.out);
    EXPECT_EQ(finished.errors, row.errors);
  }
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 0 descriptions, no index\n");
}

// Files with CR LF line ends are accepted.
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

}  // namespace
