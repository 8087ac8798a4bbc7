// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/soif_scan.h"
#include "support/files.h"

using namespace rdm;

namespace {

using catalog::SoifStream;

/// Submission is a file of these bytes, open for reading.
class Submission {
 public:
  explicit Submission(const std::string &bytes) {
    support::write_file(path(), bytes);
    file_ = HostFileGuard(::open(path().c_str(), O_RDONLY | O_CLOEXEC));
  }
  std::string path() const { return directory_.path("submission"); }
  int descriptor() const { return file_.get(); }

 private:
  support::TemporaryDirectory directory_;
  HostFileGuard file_;
};

/// RandomObjects returns objects whose tokens and values lie across the limits of any buffer.
class RandomObjects {
 public:
  std::string object() {
    std::string text = "@DOCUMENT { http://localhost/" + std::string(number(1, 300), 'u') + "\n";
    for (size_t left = number(0, 9); left > 0; --left) text += attribute();
    return text + "}\n" + std::string(number(0, 3), '\n');
  }

 private:
  size_t number(size_t from, size_t to) { return std::uniform_int_distribution<size_t>(from, to)(engine_); }
  std::string attribute() {
    const size_t size = number(0, 199) == 0 ? number(1, 700'000) : number(1, 6000);
    const std::string value(size, number(0, 1) == 0 ? '@' : '\n');
    return std::string(number(1, 200), 'n') + '{' + std::to_string(size) + "}:\t" + value + '\n';
  }

  std::mt19937 engine_{20260812};
};

TEST(SoifStream, ReturnsObjectsOfAnySizeAsTheParserDoes) {
  RandomObjects random;
  std::vector<std::string> objects;
  std::string all;
  for (int i = 0; i < 1500; ++i) all += objects.emplace_back(random.object());
  const Submission submission(all);
  SoifStream stream(submission.descriptor(), submission.path());
  int64_t offset = 0;
  for (const std::string &object : objects) {
    const auto item = stream.next();
    ASSERT_TRUE(item && item->object) << offset;
    EXPECT_EQ(item->offset, offset);
    EXPECT_TRUE(item->object->print() == catalog::print(catalog::parse(object).get())) << offset;
    EXPECT_TRUE(object.starts_with(stream.bytes_of(*item))) << offset;
    offset += static_cast<int64_t>(object.size());
  }
  EXPECT_FALSE(stream.next());
}

/// expect_as_scanned compares each object of a stream with what the scan and the parser say of its bytes.
void expect_as_scanned(const std::string &bytes) {
  const Submission submission(bytes);
  SoifStream stream(submission.descriptor(), submission.path());
  catalog::InputWindow window([&](int64_t offset, char *to, size_t count) {
    return bytes.copy(to, count, std::min(static_cast<size_t>(offset), bytes.size()));
  });
  catalog::SoifScan scan(window, static_cast<int64_t>(bytes.size()));
  while (const auto item = stream.next()) {
    const std::string fault = scan.fault_of(item->offset), context = bytes + "\nat " + std::to_string(item->offset);
    EXPECT_EQ(item->is_cut, scan.met_end()) << context;
    if (!item->object) {
      EXPECT_EQ(item->reason, fault.empty() ? "not a SOIF object" : fault) << context;
      continue;
    }
    EXPECT_EQ(item->reason + fault, "") << context;
    EXPECT_EQ(item->end, scan.end()) << context;
    EXPECT_EQ(item->object->print(), catalog::print(catalog::parse(stream.bytes_of(*item)).get())) << context;
  }
}

TEST(SoifStream, TakesTheObjectsInWhichTheScanFindsNoFault) {
  std::mt19937 random(20261123);
  const std::string sound = "@D { x\na{3}:\t1 }\nB-1{0}:\t\nbody{9}:\t@D { y\n}\n\n}\n";
  constexpr char changes[] = "@{}: \t\n09aA-\0\xFF";
  for (int i = 0; i < 3000; ++i) {
    std::string bytes;
    for (int object = 0; object < 6; ++object) bytes += sound;
    for (size_t left = random() % 6; left > 0; --left)
      bytes[random() % bytes.size()] = changes[random() % sizeof changes];
    if (random() % 4 == 0) bytes.erase(random() % bytes.size(), 1 + random() % 10);
    if (random() % 4 == 0) bytes.insert(random() % bytes.size(), sound, random() % 20, random() % 60);
    if (random() % 8 == 0) bytes.resize(random() % bytes.size());
    expect_as_scanned(bytes);
  }
}

TEST(SoifStream, FindsTheObjectAfterAMalformedOneOfAnySize) {
  for (const size_t size : {4090, 4095, 4096, 4097, 12'287, 12'288, 300'000}) {
    const std::string malformed = "@DOCUMENT { x\na b{1}:\t1\nx" + std::string(size, '@');
    const Submission submission(malformed + "\n@DOCUMENT { y\n}\n");
    SoifStream stream(submission.descriptor(), submission.path());
    const auto first = stream.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->reason, "attribute name \"a b\", after a value of the wrong size");
    const auto second = stream.next();
    ASSERT_TRUE(second && second->object) << size;
    EXPECT_EQ(second->offset, static_cast<int64_t>(malformed.size()) + 1);
    EXPECT_EQ(second->object->url(), "y");
  }
}

TEST(SoifStream, SaysWhichTokenIsTooLong) {
  const auto reason = [](const std::string &head) {
    const Submission submission("@" + head + "\n}\n");
    return SoifStream(submission.descriptor(), submission.path()).next()->reason;
  };
  EXPECT_EQ(reason("D { " + std::string(4095, 'u')), "");
  EXPECT_EQ(reason("D { " + std::string(4096, 'u')), "the URL has 4096 bytes, more than 4095");
  EXPECT_EQ(reason("D { " + std::string(50'000, 'u')), "the URL has 50000 bytes, more than 4095");
  EXPECT_EQ(reason(std::string(5000, 'D') + " { u"), "the template has 5000 bytes, more than 4095");
}

TEST(SoifStream, AFileThatBecomesShorterIsNoShorterStream) {
  std::string objects;
  for (int i = 0; i < 20'000; ++i) objects += "@DOCUMENT { x\n}\n";
  const Submission submission(objects);
  SoifStream stream(submission.descriptor(), submission.path());
  ASSERT_TRUE(stream.next());
  ASSERT_EQ(::truncate(submission.path().c_str(), off_t{16} * 19'000), 0);
  const auto read_on = [&] {
    while (stream.next()) continue;
  };
  EXPECT_THROW(read_on(), catalog::Failure);
}

TEST(SoifStream, SaysThatAFileBecameShorterWithinAnObject) {
  const Submission submission("@DOCUMENT { x\n}\n");
  SoifStream stream(submission.descriptor(), submission.path());
  const auto item = stream.next();
  ASSERT_EQ(::truncate(submission.path().c_str(), 3), 0);
  try {
    stream.bytes_of(*item);
    ADD_FAILURE() << "bytes that are not there";
  } catch (const catalog::Failure &failure) {
    EXPECT_STREQ(failure.what(), "cannot read the input: it has become shorter");
  }
}

TEST(SoifStream, LeavesTheDescriptorAtTheEnd) {
  const Submission submission("@DOCUMENT { x\n}\n");
  SoifStream stream(submission.descriptor(), submission.path());
  while (stream.next()) {
  }
  EXPECT_EQ(::lseek(submission.descriptor(), 0, SEEK_CUR), stream.size());
  SoifStream again(submission.descriptor(), submission.path());
  EXPECT_FALSE(again.next());
}

}  // namespace
