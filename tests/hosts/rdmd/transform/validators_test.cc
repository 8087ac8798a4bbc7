// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/validators.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

using hosts::Piece;

TEST(IfNoneMatch, ListsTags) {
  const struct {
    const char *field;
    bool lists;
  } cases[] = {
      {"\"a\"", true},
      {"W/\"a\"", true},
      {" \"a\"\t", true},
      {"\"b\", \"a\"", true},
      {"\"b\",\"a\"", true},
      {"\"b\" , W/\"c\" ,, \"a\" ,", true},
      {"\"b,c\", \"a\"", true},
      {"\"\", \"a\"", true},
      {"*", true},
      {" * ", true},

      {"", false},
      {",", false},
      {"a", false},
      {"\"A\"", false},
      {"\"a", false},
      {"a\"", false},
      {"\"", false},
      {"W/a", false},
      {"W/", false},
      {"w/\"a\"", false},
      {"\"b\" \"a\"", false},
      {"\"a\"b", false},
      {"b, \"a\"", false},
      {"\"b\", *", false},
      {"**", false},
      {"\"b, a\"", false},
      {"\"b,\"a\"\"", false},
  };
  for (const auto &row : cases) EXPECT_EQ(rdmd::lists_tag(row.field, "\"a\""), row.lists) << row.field;
}

TEST(IfModifiedSince, IsComparedInSeconds) {
  const struct {
    const char *field;
    bool unmodified;
  } cases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", true},
      {"Sun, 06 Nov 1994 08:49:38 GMT", true},
      {"Sun, 06 Nov 1994 08:49:36 GMT", false},
      {"Sun Nov  6 08:49:37 1994", true},
      {"yesterday", false},
      {"", false},
  };
  for (const auto &row : cases) EXPECT_EQ(rdmd::is_unmodified_since(row.field, 784111777), row.unmodified) << row.field;
}

constexpr std::time_t changed = 1'000'000'000;
constexpr std::time_t soon_after = changed + 2;

class FileValidators : public ::testing::Test {
 protected:
  /// open_file returns a piece that is the whole file of this name, after writing it with this time.
  Piece open_file(const std::string &name, const std::string &text, long nanoseconds = 0) {
    path_ = directory_.write(name, text);
    const struct timespec times[] = {{changed, nanoseconds}, {changed, nanoseconds}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
    auto file = std::make_shared<const HostFileGuard>(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    return {{}, std::move(file), 0, static_cast<std::int64_t>(text.size())};
  }
  static std::string tag(const Piece &piece) { return rdmd::validators_of({piece}, soon_after).value().tag; }

  support::TemporaryDirectory directory_;
  std::string path_;
};

TEST_F(FileValidators, AreMadeOfTheFile) {
  const auto validators = rdmd::validators_of({open_file("a", "text", 5)}, soon_after);
  ASSERT_TRUE(validators);
  struct stat status;
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  std::ostringstream identity;
  identity << std::hex << status.st_dev << '-' << status.st_ino << "-4-3b9aca00.5";
  EXPECT_EQ(validators->tag, '"' + identity.str() + '"');
  EXPECT_EQ(validators->gzip_tag, '"' + identity.str() + "-gzip\"");
  EXPECT_EQ(validators->modified, changed);
}

TEST_F(FileValidators, StayTheSameUntilTheFileChanges) {
  const Piece first = open_file("a", "text");
  const std::set<std::string> tags = {tag(first), tag(first), tag(open_file("b", "text")),
                                      tag(open_file("c", "longer text")), tag(open_file("d", "text", 1))};
  EXPECT_EQ(tags.size(), 4U);
  const std::string before = tag(first);
  open_file("a", "text");
  EXPECT_EQ(tag(first), before);
  open_file("a", "TEXT", 1);
  EXPECT_NE(tag(first), before);
}

TEST_F(FileValidators, NeedAFileThatHasSettled) {
  const Piece piece = open_file("a", "text", 999'999'999);
  EXPECT_TRUE(rdmd::validators_of({piece}, changed + 2));
  EXPECT_FALSE(rdmd::validators_of({piece}, changed + 1));
  EXPECT_FALSE(rdmd::validators_of({piece}, changed - 100)) << "the clock was set back";
}

TEST_F(FileValidators, NeedOneWholeFileWithAName) {
  const Piece whole = open_file("a", "text");
  Piece beginning = whole, end = whole, longer = whole;
  beginning.length = 3;
  end.offset = 1;
  end.length = 3;
  longer.length = 5;
  const Piece bytes{"text", nullptr, 0, 4};
  const auto pipe = std::make_shared<const HostFileGuard>(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const std::vector<Piece> bodies[] = {{},
                                       {beginning},
                                       {end},
                                       {longer},
                                       {bytes},
                                       {bytes, whole},
                                       {whole, bytes},
                                       {whole, whole},
                                       {{{}, pipe, 0, 0}},
                                       {{{}, std::make_shared<const HostFileGuard>(), 0, 4}}};
  for (const std::vector<Piece> &body : bodies) EXPECT_FALSE(rdmd::validators_of(body, soon_after)) << &body - bodies;
  EXPECT_TRUE(rdmd::validators_of({whole}, soon_after));
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  EXPECT_FALSE(rdmd::validators_of({whole}, soon_after));
}

}  // namespace
