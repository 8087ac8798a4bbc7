// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class Stats : public testing::Test {
 protected:
  nlohmann::json figures() { return nlohmann::json::parse(catalog_.run({"stats", "--json"}).out); }
  CatalogFiles catalog_;
};

TEST_F(Stats, CountsDescriptionsBytesAndAttributes) {
  const std::string one = rd("http://localhost/1", {{"title", "One"}, {"author", "A"}, {"author", "B"}});
  catalog_.update(one + rd("http://localhost/2", {{"title", "Two"}, {"author-1", "A"}}));
  size_t bytes = 0, longest = 0;
  for (const auto &[key, record] : catalog_.records()) {
    bytes += record.size();
    longest = std::max(longest, record.size());
  }
  const nlohmann::json got = figures();
  EXPECT_EQ(got["descriptions"], 2);
  EXPECT_EQ(got["bytes"], bytes);
  EXPECT_EQ(got["longest"], longest);
  EXPECT_EQ(got["next-number"], 3);
  EXPECT_EQ(got["attributes"].dump(), R"({"author":1,"author-1":1,"rd-last-changed":2,"title":2})");
}

TEST_F(Stats, TellsHowTheFileIsLaidOut) {
  std::string stream;
  for (int i = 0; i < 40; ++i)
    stream += rd("http://localhost/" + std::to_string(i), {{"body", std::string(3000, 'b')}});
  stream += rd("http://localhost/long", {{"body", std::string(200000, 'b')}});
  catalog_.update(stream);
  const nlohmann::json got = figures();
  const auto size = static_cast<int64_t>(support::read_file(catalog_.path()).size());
  EXPECT_EQ(got["file-bytes"], size);
  EXPECT_EQ(got["page-size"].get<int64_t>() * got["pages"].get<int64_t>(), size);
  EXPECT_GE(got["overflow-pages"].get<int64_t>(), 200000 / got["page-size"].get<int64_t>());
  EXPECT_GE(got["pages"].get<int64_t>(), got["buckets"].get<int64_t>() + got["overflow-pages"].get<int64_t>());
  EXPECT_EQ(got["fill-percent"],
            std::lround(100.0 * (got["bytes"].get<double>() + 41 * 8) / static_cast<double>(size)));
}

TEST_F(Stats, TextListsTheMostFrequentAttributeFirst) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}, {"author", "A"}}) +
                  rd("http://localhost/2", {{"title", "2"}}));
  const Finished finished = catalog_.run({"stats"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out.substr(0, finished.out.find('\n')), "           2  descriptions");
  EXPECT_EQ(finished.out.substr(finished.out.find("attributes\n")),
            "attributes\n           2  rd-last-changed\n           2  title\n           1  author\n");
}

}  // namespace
