// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/transform.h"

#include <string>

#include <gtest/gtest.h>

#include "support/gunzip.h"

using namespace rdm;

namespace {

using hosts::Field;
using hosts::ServiceAnswer;
using rdmd::Wishes;

const std::string text(2000, 'x');

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
  rdmd::transform(answer, wishes, true);
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
    rdmd::transform(answer, row.wishes, row.may_compress);
    EXPECT_EQ(lines(answer), lines(row.answer)) << row.name;
    EXPECT_EQ(answer.head.length, row.answer.head.length) << row.name;
    EXPECT_EQ(answer.pieces[0].bytes, row.answer.pieces[0].bytes) << row.name;
  }
}

}  // namespace
