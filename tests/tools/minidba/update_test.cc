// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

class Update : public testing::Test {
 protected:
  /// expect_update asserts the output of an update, and exit status 1 if it rejected an object.
  Finished expect_update(const std::string &stream, const std::string &out, const std::string &errors) {
    Finished finished = catalog_.update(stream);
    EXPECT_EQ(finished.status, errors.ends_with(" 0 rejected\n") ? 0 : 1);
    EXPECT_EQ(finished.out, out);
    EXPECT_EQ(finished.errors, errors);
    return finished;
  }
  std::string record(const std::string &key) { return catalog_.records()[key]; }

  CatalogFiles catalog_;
};

const std::string one = rd("http://localhost/1", {{"title", "One"}});
const std::string two = rd("http://localhost/2", {{"title", "Two"}});

TEST_F(Update, CountsNewChangedAndUnchangedDescriptions) {
  const auto titled = [](const std::string &url, const std::string &title) { return rd(url, {{"title", title}}); };
  const std::string four = "http://localhost/4";
  const struct {
    const char *what;
    std::string stream, out, summary, titles;
  } rows[] = {
      {"numbers begin at 1", one + two, "2\n", "2 new, 0 changed, 0 unchanged", "1 One, 2 Two, "},
      {"later ones are above", titled("http://localhost/3", "Three"), "1\n", "1 new, 0 changed, 0 unchanged",
       "1 One, 2 Two, 3 Three, "},
      {"a change keeps its number", titled("http://localhost/1", "Uno"), "1\n", "0 new, 1 changed, 0 unchanged",
       "1 Uno, 2 Two, 3 Three, "},
      {"the last of equal URLs wins", titled(four, "Four") + titled(four, "Vier") + titled(four, "Vier"), "3\n",
       "1 new, 1 changed, 1 unchanged", "1 Uno, 2 Two, 3 Three, 4 Vier, "},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    expect_update(row.stream, row.out, "minidba: " + row.summary + ", 0 rejected\n");
    std::string titles;
    for (const auto &[key, record] : catalog_.records())
      titles += std::to_string(std::stoul(key, nullptr, 16)) + ' ' + CatalogFiles::value(record, "title") + ", ";
    EXPECT_EQ(titles, row.titles);
  }
}

// The number and the exit status are those of the descriptions.
TEST_F(Update, NamesTextThatBelongsToNoObject) {
  expect_update("title\n" + one + "\n}\n" + two + "the end", "2\n",
                "minidba: the input: line 1: text that belongs to no object\n"
                "minidba: the input: line 6: text that belongs to no object\n"
                "minidba: the input: line 10: text that belongs to no object\n"
                "minidba: 2 new, 0 changed, 0 unchanged, 0 rejected\n");
}

TEST_F(Update, OfAFileThatIsNoCatalogLeavesNoLock) {
  support::write_file(catalog_.path(), "text");
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"update"}, {"delete", "1"}, {"-i", catalog_.path(".i"), "index"}}) {
    EXPECT_EQ(support::run(catalog_.command(words), one).status, 2);
    EXPECT_FALSE(support::file_exists(catalog_.path(".lock")));
  }
  support::write_file(catalog_.path(".lock"), "");
  EXPECT_EQ(catalog_.update(one).status, 2);
  EXPECT_TRUE(support::file_exists(catalog_.path(".lock"))) << "another program may have opened it";
}

TEST_F(Update, WritesNothingIfAllDescriptionsAreUnchanged) {
  catalog_.update(one + two);
  const auto before = catalog_.records();
  struct stat old_status, new_status;
  ASSERT_EQ(stat(catalog_.path().c_str(), &old_status), 0);
  expect_update(one + rd("http://localhost/2", {{"rd-last-changed", "never"}, {"title", "Two"}}), "2\n",
                "minidba: 0 new, 0 changed, 2 unchanged, 0 rejected\n");
  EXPECT_EQ(catalog_.records(), before);
  ASSERT_EQ(stat(catalog_.path().c_str(), &new_status), 0);
  EXPECT_EQ(old_status.st_ino, new_status.st_ino);
}

TEST_F(Update, SkipsAHeaderInFront) {
  const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n\n";
  expect_update(header + one, "1\n", "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected\n");
  expect_update(one + header, "1\n",
                "minidba: the input: line 4: -: object 2 at byte " + std::to_string(one.size()) +
                    " rejected: no URL\nminidba: 0 new, 0 changed, 1 unchanged, 1 rejected\n");
}

struct MalformedRow {
  const char *what;
  std::string text;
  std::string reason;
};

TEST_F(Update, AMalformedObjectCostsOnlyItself) {
  const MalformedRow rows[] = {
      {"no tab", "@D { http://x/\ntitle{3}:Two\n}\n", "no colon and tab after title{3}"},
      {"no URL", "@D { -\ntitle{3}:\tTwo\n}\n", "no URL"},
      {"size too small", "@D { http://x/\ntitle{2}:\tTwo\nauthor{1}:\tA\n}\n",
       "attribute name \"o?author\", after a value of the wrong size; title{3} would fit, not title{2}"},
      {"size too large", "@D { http://x/\ntitle{30}:\tTwo\nauthor{1}:\tA\n}\n",
       "attribute name \"http://localhost/2?title\", after a value of the wrong size; title{3} would fit, not "
       "title{30}"},
      {"size beyond the stream", "@D { http://x/\ntitle{900000}:\tTwo\n}\n",
       "title{900000} reaches beyond the end; title{3} would fit, not title{900000}"},
      {"negative size", "@D { http://x/\ntitle{-1}:\tTwo\n}\n",
       "title{-1} has a size below zero; title{3} would fit, not title{-1}"},
      {"endless size", "@D { http://x/\ntitle{99999999999999999999}:\tTwo\n}\n",
       "title{99999999999999999999} reaches beyond the end; title{3} would fit, not title{99999999999999999999}"},
      {"no attributes, no end", "@D { http://x/\n", "attribute name \"@DOCUMENT \", after a value of the wrong size"},
      {"only an at-sign", "@\n", "attribute name \"(empty)\", after a value of the wrong size"},
  };
  for (const MalformedRow &row : rows) {
    const CatalogFiles catalog;
    const Finished finished = catalog.update(one + row.text + two);
    EXPECT_EQ(finished.status, 1) << row.what;
    EXPECT_EQ(finished.out, "2\n") << row.what << ": " << finished.errors;
    EXPECT_THAT(finished.errors,
                HasSubstr("object 2 at byte " + std::to_string(one.size()) + " rejected: " + row.reason + "\n"))
        << row.what;
    EXPECT_THAT(finished.errors, HasSubstr("2 new, 0 changed, 0 unchanged, 1 rejected\n")) << row.what;
    EXPECT_EQ(catalog.records().size(), 2u) << row.what;
  }
}

TEST_F(Update, AnObjectCutAtTheEndIsRejected) {
  const Finished finished = catalog_.update(one + two.substr(0, two.size() - 2));
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_THAT(finished.errors, HasSubstr("rejected: not closed\n"));
}

TEST_F(Update, ValuesAreBytes) {
  const std::string value = std::string("a\0b\n@}{\xff\n\0", 10) + std::string(5000, '\n');
  catalog_.update(rd("http://localhost/1", {{"body", value}}));
  EXPECT_NE(record("00000001").find("body{5010}:\t" + value + "\n"), std::string::npos);
}

TEST_F(Update, HoldsRecordsOfEverySizeUpToAMebibyte) {
  std::string stream;
  std::vector<size_t> sizes{0, 1, 100, 4000, 4096, 8192, 16384, 32700, 32768, 65536, 200000, 1 << 20};
  for (size_t i = 0; i < sizes.size(); ++i)
    stream += rd("http://localhost/" + std::to_string(i), {{"body", std::string(sizes[i], 'b')}, {"n", "1"}});
  const Finished finished = catalog_.update(stream);
  EXPECT_EQ(finished.out, std::to_string(sizes.size()) + "\n") << finished.errors;
  auto records = catalog_.records();
  ASSERT_EQ(records.size(), sizes.size());
  for (size_t i = 1; i < sizes.size(); ++i) {
    char key[17];
    snprintf(key, sizeof key, "%08zx", i + 1);
    EXPECT_NE(records[key].find("body{" + std::to_string(sizes[i]) + "}:\t" + std::string(sizes[i], 'b') + "\n"),
              std::string::npos)
        << key;
  }
}

// Another program adds a record under the next number; the trailer of the database does not count it.
TEST_F(Update, ANumberUsedByAnotherProgramIsNotReused) {
  catalog_.update(one);
  const std::string foreign = rd("http://localhost/2", {{"title", "Foreign"}});
  catalog_.put("00000002", foreign);
  expect_update(rd("http://localhost/3", {{"title", "Three"}}), "1\n",
                "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected\n");
  const auto records = catalog_.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records.at("00000002"), foreign);
  EXPECT_EQ(CatalogFiles::value(records.at("00000003"), "title"), "Three");
}

TEST_F(Update, TwoAtOnceLoseNothing) {
  std::vector<pid_t> children;
  for (int i = 0; i < 6; ++i) {
    std::string stream;
    for (int j = 0; j < 50; ++j) stream += rd("http://localhost/" + std::to_string(i * 40 + j), {{"title", "T"}});
    support::write_file(catalog_.path(".in" + std::to_string(i)), stream);
    children.push_back(support::start(catalog_.command({"update"}), catalog_.path(".in" + std::to_string(i)),
                                      catalog_.path(".out"), catalog_.path(".err")));
  }
  for (pid_t child : children) EXPECT_EQ(support::wait_for(child), 0);
  const auto records = catalog_.records();
  EXPECT_EQ(records.size(), 250u);
  EXPECT_EQ(records.rbegin()->first, "000000fa") << "no number is left out or used twice";
}

}  // namespace
