// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/transform.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/gunzip.h"

using namespace rdm;

namespace {

using hosts::Field;
using hosts::ServiceAnswer;
using rdmd::Wishes;

const std::string text(2000, 'x');
constexpr std::time_t modified = 784111777, now = modified + 10;

/// answer_of returns a whole answer of the plug-in with this body.
ServiceAnswer answer_of(const std::string &body, std::vector<Field> fields = {}) {
  ServiceAnswer answer;
  answer.outcome = hosts::Outcome::answered;
  answer.delimited = true;
  answer.head.fields = std::move(fields);
  answer.head.fields.push_back({"content-type", "text/x-test"});
  answer.head.fields.push_back({"content-length", std::to_string(body.size())});
  answer.head.length = static_cast<std::int64_t>(body.size());
  answer.pieces = {{body, nullptr, 0, *answer.head.length}};
  return answer;
}

/// lines returns the fields of an answer.
std::string lines(const ServiceAnswer &answer) {
  std::string all;
  for (const Field &field : answer.head.fields) all += field.name + ": " + field.value + "\n";
  return all;
}

ServiceAnswer transformed(ServiceAnswer answer, const Wishes &wishes) {
  rdmd::transform(answer, wishes, true, now);
  return answer;
}

TEST(Transform, ReadsTheWishesOfARequest) {
  hosts::ServiceRequest request;
  EXPECT_FALSE(rdmd::read_wishes(request).gzip);
  EXPECT_FALSE(rdmd::read_wishes(request).head_only);
  request.headers = {{"accept", "gzip"}, {"accept-encoding", "br, gzip"}};
  request.head_only = true;
  EXPECT_TRUE(rdmd::read_wishes(request).gzip);
  EXPECT_TRUE(rdmd::read_wishes(request).head_only);
}

TEST(Transform, CompressesForClientsThatPreferIt) {
  const ServiceAnswer answer = transformed(answer_of(text), {.gzip = true});
  ASSERT_EQ(answer.pieces.size(), 1U);
  const std::string &bytes = answer.pieces[0].bytes;
  EXPECT_EQ(support::gunzip(bytes), text);
  EXPECT_EQ(answer.head.length, bytes.size());
  EXPECT_EQ(lines(answer), "content-type: text/x-test\ncontent-length: " + std::to_string(bytes.size()) +
                               "\nVary: Accept-Encoding\nContent-Encoding: gzip\n");
}

TEST(Transform, TellsCachesOfTheChoiceAlsoInThePlainAnswer) {
  const ServiceAnswer answer = transformed(answer_of(text), {});
  EXPECT_EQ(answer.pieces[0].bytes, text);
  EXPECT_EQ(lines(answer), "content-type: text/x-test\ncontent-length: 2000\nVary: Accept-Encoding\n");
}

TEST(Transform, SendsThePlainAnswerIfItCannotCompress) {
  ServiceAnswer answer = answer_of(text);
  answer.pieces = {{{}, std::make_shared<const HostFileGuard>(), 0, 2000}};
  answer = transformed(std::move(answer), {.gzip = true});
  EXPECT_TRUE(answer.pieces[0].file);
  EXPECT_EQ(lines(answer), "content-type: text/x-test\ncontent-length: 2000\nVary: Accept-Encoding\n");
}

TEST(Transform, LeavesOtherAnswersAsTheyAre) {
  const auto with = [](auto change) {
    ServiceAnswer answer = answer_of(text);
    change(answer);
    return answer;
  };
  const struct {
    const char *name;
    ServiceAnswer answer;
    Wishes wishes;
    bool may_compress;
  } cases[] = {
      {"a short body", answer_of(std::string(1023, 'x')), {.gzip = true}, true},
      {"a huge body", with([](ServiceAnswer &a) { a.head.length = rdmd::most_compressed + 1; }), {.gzip = true}, true},
      {"no length", with([](ServiceAnswer &a) { a.head.length = {}; }), {.gzip = true}, true},
      {"an incomplete body", with([](ServiceAnswer &a) { a.delimited = false; }), {.gzip = true}, true},
      {"another status", with([](ServiceAnswer &a) { a.head.status = 404; }), {.gzip = true}, true},
      {"no answer", with([](ServiceAnswer &a) { a.outcome = hosts::Outcome::broken; }), {.gzip = true}, true},
      {"a coding of its own", answer_of(text, {{"Content-Encoding", "x-gzip"}}), {.gzip = true}, true},
      {"an entity tag of its own", answer_of(text, {{"ETag", "\"1\""}}), {.gzip = true}, true},
      {"HEAD", answer_of(text), {.head_only = true, .gzip = true}, true},
      {"the option --no-gzip", answer_of(text), {.gzip = true}, false},
  };
  for (const auto &row : cases) {
    ServiceAnswer answer = row.answer;
    rdmd::transform(answer, row.wishes, row.may_compress, now);
    EXPECT_EQ(lines(answer), lines(row.answer)) << row.name;
    EXPECT_EQ(answer.head.length, row.answer.head.length) << row.name;
    EXPECT_EQ(answer.pieces[0].bytes, row.answer.pieces[0].bytes) << row.name;
  }
}

/// Prepared makes answers whose body is a file.
class Prepared : public ::testing::Test {
 protected:
  ServiceAnswer answer(std::size_t size = text.size(), std::vector<Field> fields = {}) {
    const std::string path = directory_.write("file", text.substr(0, size));
    const struct timespec times[] = {{modified, 0}, {modified, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    ServiceAnswer answer = answer_of(text.substr(0, size), std::move(fields));
    auto file = std::make_shared<const HostFileGuard>(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    answer.pieces = {{{}, std::move(file), 0, *answer.head.length}};
    return answer;
  }
  static std::string value(const ServiceAnswer &answer, std::string_view name) {
    for (const Field &field : answer.head.fields)
      if (field.name == name) return field.value;
    return "";
  }
  /// tag returns the tag that clients with these wishes get.
  std::string tag(bool gzip) { return value(transformed(answer(), {.gzip = gzip, .validates = true}), "ETag"); }

  support::TemporaryDirectory directory_;
};

TEST_F(Prepared, AnswersToGetHaveValidators) {
  const ServiceAnswer plain = transformed(answer(), {.validates = true});
  EXPECT_EQ(lines(plain), "content-type: text/x-test\ncontent-length: 2000\nVary: Accept-Encoding\nETag: " +
                              tag(false) + "\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\n");
  EXPECT_TRUE(plain.pieces[0].file);
  const ServiceAnswer compressed = transformed(answer(), {.gzip = true, .validates = true});
  EXPECT_EQ(value(compressed, "ETag"), tag(true));
  EXPECT_EQ(value(compressed, "Last-Modified"), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_EQ(support::gunzip(compressed.pieces[0].bytes), text);
  EXPECT_NE(tag(true), tag(false));
  const ServiceAnswer brief = transformed(answer(100), {.gzip = true, .validates = true});
  EXPECT_TRUE(value(brief, "ETag").ends_with("\"") && !value(brief, "ETag").ends_with("-gzip\"")) << lines(brief);
  EXPECT_EQ(value(brief, "Vary"), "");
}

TEST_F(Prepared, AnswersToOtherMethodsHaveNone) {
  for (const Wishes &wishes : {Wishes{.head_only = true, .validates = false}, Wishes{.gzip = true}, Wishes{}})
    EXPECT_EQ(lines(transformed(answer(), wishes)).find("ETag"), std::string::npos);
}

TEST_F(Prepared, ValidatorsOfThePluginStay) {
  const std::vector<Field> own[] = {{{"etag", "\"1\""}}, {{"last-modified", "Sun, 06 Nov 1994 08:49:38 GMT"}}};
  for (const std::vector<Field> &fields : own) {
    const ServiceAnswer answered =
        transformed(answer(100, fields), {.validates = true, .if_none_match = "*", .if_modified_since = "x"});
    EXPECT_EQ(answered.head.status, 200);
    EXPECT_EQ(lines(answered), lines(answer(100, fields)));
  }
}

TEST_F(Prepared, AClientThatHasItGetsNoBody) {
  const std::string plain = tag(false), gzip = tag(true);
  const std::string then = "Sun, 06 Nov 1994 08:49:37 GMT", before = "Sun, 06 Nov 1994 08:49:36 GMT";
  const struct {
    const char *name;
    Wishes wishes;
    std::string held;  // the tag in a 304; empty: the answer is sent
  } cases[] = {
      {"the plain form", {.if_none_match = plain}, plain},
      {"the compressed form", {.gzip = true, .if_none_match = gzip}, gzip},
      {"another weak tag and this", {.if_none_match = "W/\"x\", W/" + plain}, plain},
      {"both forms", {.gzip = true, .if_none_match = plain + ", " + gzip}, gzip},
      {"the plain form, but the other would be sent", {.gzip = true, .if_none_match = plain}, plain},
      {"the compressed form, but it would not be sent", {.if_none_match = gzip}, ""},
      {"any", {.if_none_match = "*"}, plain},
      {"any compressed", {.gzip = true, .if_none_match = "*"}, gzip},
      {"another tag", {.if_none_match = "\"x\""}, ""},
      {"no tag", {.if_none_match = ""}, ""},
      {"the time", {.if_modified_since = then}, plain},
      {"the time, compressed", {.gzip = true, .if_modified_since = then}, gzip},
      {"an earlier time", {.if_modified_since = before}, ""},
      {"no time", {.if_modified_since = "then"}, ""},
      {"another tag and the time", {.if_none_match = "\"x\"", .if_modified_since = then}, ""},
      {"the tag and an earlier time", {.if_none_match = plain, .if_modified_since = before}, plain},
  };
  for (const auto &row : cases) {
    Wishes wishes = row.wishes;
    wishes.validates = true;
    const ServiceAnswer result = transformed(answer(text.size(), {{"x-own", "1"}, {"Content-Language", "en"}}), wishes);
    EXPECT_EQ(result.head.status, row.held.empty() ? 200 : 304) << row.name;
    EXPECT_EQ(result.pieces.empty(), !row.held.empty()) << row.name;
    if (row.held.empty()) continue;
    EXPECT_TRUE(result.delimited) << row.name;
    EXPECT_EQ(result.head.length, std::nullopt) << row.name;
    EXPECT_EQ(lines(result), "x-own: 1\nVary: Accept-Encoding\nETag: " + row.held + "\nLast-Modified: " + then + "\n")
        << row.name;
  }
}

TEST_F(Prepared, AnAnswerThatCannotBeCompressedHasTheTagOfThePlainForm) {
  ServiceAnswer prepared = answer();
  const std::string noise = [] {
    std::string bytes(2000, ' ');
    std::uint32_t state = 1;
    for (char &c : bytes) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
  }();
  const std::string path = directory_.write("file", noise);
  const struct timespec times[] = {{modified, 0}, {modified, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  const ServiceAnswer result = transformed(std::move(prepared), {.gzip = true, .validates = true});
  EXPECT_EQ(value(result, "Content-Encoding"), "");
  EXPECT_FALSE(value(result, "ETag").empty() || value(result, "ETag").ends_with("-gzip\"")) << lines(result);
}

TEST(Transform, ReadsTheConditionsOfAGet) {
  hosts::ServiceRequest request;
  request.line = {{"method", "GET"}, {"uri", "/rdm/x"}};
  EXPECT_TRUE(rdmd::read_wishes(request).validates);
  EXPECT_EQ(rdmd::read_wishes(request).if_none_match, std::nullopt);
  request.headers = {{"if-modified-since", "then"}, {"if-none-match", "\"a\""}};
  EXPECT_EQ(rdmd::read_wishes(request).if_none_match, "\"a\"");
  EXPECT_EQ(rdmd::read_wishes(request).if_modified_since, "then");
  for (const char *method : {"POST", "HEAD", "get"}) {
    request.line[0].value = method;
    EXPECT_FALSE(rdmd::read_wishes(request).validates) << method;
    EXPECT_EQ(rdmd::read_wishes(request).if_none_match, std::nullopt) << method;
  }
}

}  // namespace
