// SPDX-License-Identifier: MIT
#include <ctime>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

std::string url_of(int number) { return "http://localhost/" + std::to_string(number); }

std::string sound(int number) {
  return rd(url_of(number), {{"title", "Number " + std::to_string(number)}, {"body", std::string(300, 'b')}});
}

class UpdateRejects : public testing::Test {
 protected:
  Finished update(const std::string &stream) { return catalog_.run({"update", "--rejects", file_}, stream); }
  std::string rejects() { return support::read_file(file_); }
  CatalogFiles catalog_;
  const std::string file_ = catalog_.path(".rejects");
};

TEST_F(UpdateRejects, KeepObjectsAsTheyCame) {
  const std::string bad[] = {
      "@D { http://x/1\ntitle{3}:Two\n}\n",
      "@D { -\ntitle{3}:\tTwo\n}",
      "@D { http://x/2\ntitle{2}:\tTwo\nauthor{1}:\tA\n}\nrest of it\n\n",
      "@D { http://x/3\ntitle{900000}:\tTwo\n}\n",
  };
  std::string stream = sound(1), expected;
  for (const std::string &object : bad) {
    stream += object + sound(2);
    expected += object;
  }
  const Finished finished = update(stream);
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "5\n") << finished.errors;
  EXPECT_EQ(rejects(), expected);
}

TEST_F(UpdateRejects, CanBeMendedAndFedAgain) {
  const std::string mended = rd(url_of(2), {{"title", "Two"}});
  std::string damaged = mended;
  damaged.replace(damaged.find("{3}"), 3, "{9}");
  EXPECT_EQ(update(sound(1) + damaged + sound(3)).out, "2\n");
  ASSERT_EQ(rejects(), damaged);
  support::write_file(file_, mended);
  // The update reads the file that it replaces.
  const Finished finished =
      support::run({"/bin/sh", "-c", catalog_.shell_command("update --rejects " + file_ + " <" + file_)});
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(rejects(), "");
  EXPECT_EQ(catalog_.run({"get", url_of(2)}).status, 0);
}

TEST_F(UpdateRejects, FedBackUnmendedTheyAreKept) {
  const std::string bad = "@D { http://x/1\ntitle{3}:Two\n}\n";
  update(sound(1) + bad);
  for (int round = 0; round < 2; ++round) {
    const Finished finished =
        support::run({"/bin/sh", "-c", catalog_.shell_command("update --rejects " + file_ + " <" + file_)});
    EXPECT_EQ(finished.out, "0\n");
    EXPECT_EQ(rejects(), bad);
  }
}

TEST_F(UpdateRejects, AFileThatCannotBeWrittenChangesNothing) {
  const std::string stream = sound(1) + "@\n";
  const struct {
    std::string file, message;
  } rows[] = {
      {"/nonexistent/rejects", "cannot create /nonexistent/rejects.new: No such file or directory"},
      {"/dev/full", "not a regular file: /dev/full"},
      {catalog_.directory(), "not a regular file: " + catalog_.directory()},
      {catalog_.path(), "database and rejects are the same file: " + catalog_.path()},
      {catalog_.path(".idx"), "index and rejects are the same file: " + catalog_.path(".idx")},
  };
  for (const auto &row : rows) {
    const Finished finished = catalog_.run({"update", "--rejects", row.file}, stream);
    EXPECT_EQ(finished.status, 2) << row.file;
    EXPECT_EQ(finished.errors, "minidba: " + row.message + "\n");
    EXPECT_FALSE(support::file_exists(catalog_.path())) << row.file;
  }
}

TEST_F(UpdateRejects, ADryRunReportsRejectsAndWritesNone) {
  const Finished finished = catalog_.run({"update", "--dry-run", "--rejects", file_}, sound(1) + "@\n");
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(finished.errors, "minidba: the input: line 5: object 2 at byte " + std::to_string(sound(1).size()) +
                                 " rejected: not a SOIF object\n"
                                 "minidba: dry run: 1 new, 0 changed, 0 unchanged, 1 rejected\n");
  EXPECT_TRUE(catalog_.files().empty());
}

TEST_F(UpdateRejects, QuietStillReportsRejects) {
  const Finished finished = catalog_.run({"update", "--quiet"}, sound(1) + "@\n");
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_THAT(finished.errors, HasSubstr("object 2 at byte "));
  EXPECT_EQ(finished.errors.find("new,"), std::string::npos);
}

// To correct a submission, users need the line, the URL and, for a wrong byte count, the right one.
TEST_F(UpdateRejects, NameLineUrlAndTheCountThatFits) {
  const std::string path = catalog_.path(".soif");
  support::write_file(path,
                      "@D { http://x/1\ntitle{2}:\tTwo\nbody{9}:\t}\nx{1}:\ty\n}\n\n"
                      "@D { http://x/3\ntitle{x}:\tTwo\n}\n"
                      "@D { http://x/4\ntitle{3}:\tTwo and a half\n");
  const Finished finished = catalog_.run({"--json", "update", path});
  EXPECT_EQ(finished.status, 1);
  const std::string at = "minidba: " + path + ": line ";
  EXPECT_EQ(finished.errors,
            at +
                "1: http://x/1: object 1 at byte 0 rejected: attribute name \"o?body\", after a value of "
                "the wrong size; title{3} would fit, not title{2}\n" +
                at +
                "7: http://x/3: object 2 at byte 52 rejected: attribute name \"Two?}?@D \", after a "
                "value of the wrong size; title{3} would fit, not title{x}\n" +
                at +
                "10: http://x/4: object 3 at byte 84 rejected: not a SOIF object\n"
                "minidba: no valid description in the input: the catalog is unchanged\n");
  const std::string input = "{\"input\":\"" + path + "\",\"object\":";
  EXPECT_EQ(
      finished.out,
      "{\"verb\":\"update\",\"dry-run\":false,\"accepted\":0,\"new\":0,\"changed\":0,\"unchanged\":0,\"rejected\":3,"
      "\"rejects\":[" +
          input +
          "1,\"line\":1,\"byte\":0,\"url\":\"http://x/1\",\"reason\":\"attribute name \\\"o?body\\\", after a value of "
          "the wrong size; title{3} would fit, not title{2}\",\"attribute\":\"title\",\"count\":\"2\",\"fits\":3}," +
          input +
          "2,\"line\":7,\"byte\":52,\"url\":\"http://x/3\",\"reason\":\"attribute name \\\"Two?}?@D \\\", after a "
          "value "
          "of the wrong size; title{3} would fit, not title{x}\",\"attribute\":\"title\",\"count\":\"x\",\"fits\":3}," +
          input + "3,\"line\":10,\"byte\":84,\"url\":\"http://x/4\",\"reason\":\"not a SOIF object\"}]}\n");
}

/// damaged returns an object with one of the usual faults of submissions.
std::string damaged(int number, std::mt19937 &random) {
  std::string text = sound(number);
  switch (random() % 6) {
    case 0:
      return text.replace(text.find("body{300}"), 9, "body{299}");
    case 1:
      return text.replace(text.find("body{300}"), 9, "body{999}");
    case 2:
      return text.erase(text.find("title{") + 5, 1);
    case 3:
      return text.substr(0, text.size() / 2) + "\n";
    case 4:
      return text.replace(text.find("body{300}"), 9, "body{-30}");
    default:
      return text.erase(text.find('\t'), 1);
  }
}

TEST_F(UpdateRejects, HugeByteCountsDoNotSlowTheUpdate) {
  // The count of each object reaches beyond the end of the stream; reading so many bytes for each would take minutes.
  std::string stream;
  constexpr int count = 20000;
  for (int i = 0; i < count; ++i)
    stream += "@DOCUMENT { " + url_of(i) + "\nbody{200000000}:\t" + std::string(1000, 'b') + "\n}\n";
  const std::clock_t start = std::clock();
  EXPECT_EQ(update(stream).out, "0\n");
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
  EXPECT_TRUE(rejects() == stream);
}

TEST_F(UpdateRejects, OnlyDamagedObjectsAreRejected) {
  std::mt19937 random(11);
  std::string stream;
  std::vector<std::string> bad;
  std::vector<size_t> offsets;
  constexpr int count = 2000;
  for (int i = 0; i < count; ++i) {
    const bool spoil = i % 20 == 7;
    if (spoil) {
      bad.push_back(damaged(i, random));
      offsets.push_back(stream.size());
    }
    stream += spoil ? bad.back() : sound(i);
  }
  const Finished finished = update(stream);
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1900\n");
  EXPECT_THAT(finished.errors, HasSubstr("minidba: 1900 new, 0 changed, 0 unchanged, 100 rejected\n"));
  ASSERT_EQ(bad.size(), 100u);
  for (size_t i = 0; i < bad.size(); ++i) {
    EXPECT_THAT(finished.errors, HasSubstr(" at byte " + std::to_string(offsets[i]) + " rejected: ")) << bad[i];
    EXPECT_THAT(rejects(), HasSubstr(bad[i]));
  }
  const std::string listed = "\n" + catalog_.run({"list", "--format", "tsv", "--attributes", "title"}).out;
  for (int i = 0; i < count; ++i)
    EXPECT_EQ(listed.find("\t" + url_of(i) + "\tNumber " + std::to_string(i) + "\n") != std::string::npos, i % 20 != 7);
}

}  // namespace
