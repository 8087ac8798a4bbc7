// SPDX-License-Identifier: MIT
#include "service/rds/planned_descriptions.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::soif;

constexpr uint32_t count = 200;

std::string canonical(uint32_t number) {
  return soif("DOCUMENT", "http://localhost/" + std::to_string(number),
              {{"author-1", "A" + std::to_string(number)}, {"title", std::string(number % 40 + 1, 't')}});
}

/// A catalog of two hundred records, of which every tenth is not as it prints, and every fiftieth has a size of its
/// own.
class PlannedTest : public support::HostTest {
 protected:
  void SetUp() override {
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    {
      const DatabasePtr database(dba_open(catalog_.path().c_str(), "w"));
      for (uint32_t number = 1; number <= count; ++number) {
        put(database.get(), number, record(number));
        entries.emplace_back(number, number);
        numbers_.push_back(number);
      }
    }
    catalog_.index(entries);
    snapshot_ = Snapshot::open(catalog_.path().c_str());
    ASSERT_NE(snapshot_, nullptr);
  }
  void TearDown() override { snapshot_.reset(); }

  static std::string record(uint32_t number) {
    if (number % 50 == 0) return soif("DOCUMENT", "u", {{"author-1", "A"}, {"title", std::string(number * 1000, 'x')}});
    return number % 10 == 0 ? canonical(number) + "\n" : canonical(number);
  }
  static void put(DB *database, uint32_t number, std::string bytes) {
    char key[9];
    std::snprintf(key, sizeof key, "%08x", number);
    DBT name{key, 8};
    const DBT value{bytes.data(), bytes.size()};
    ASSERT_EQ(dba_put(database, &name, &value), 0);
  }

  /// print prints positions of the index by the plan, after a walk if `walks`.
  std::string print(uint32_t first, uint32_t wanted, char **attributes, bool walks) {
    const CsioPtr output = make_csio();
    PlannedDescriptions descriptions(*snapshot_, attributes, output.get());
    if (walks) descriptions.plan(first, numbers_.data() + first, wanted);
    for (uint32_t i = first; i < first + wanted; ++i) EXPECT_TRUE(descriptions.print(i, numbers_[i])) << i;
    descriptions.flush();
    return {reinterpret_cast<char *>(output->data), output->length};
  }
  /// parsed prints them by parser and printer.
  std::string parsed(uint32_t first, uint32_t wanted, char **attributes) {
    const CsioPtr output = make_csio();
    const Descriptions descriptions(snapshot_->database(), attributes, output.get());
    for (uint32_t i = first; i < first + wanted; ++i) {
      char key[9];
      std::snprintf(key, sizeof key, "%08x", numbers_[i]);
      EXPECT_TRUE(descriptions.print(key)) << i;
    }
    return {reinterpret_cast<char *>(output->data), output->length};
  }
  uint32_t planned(Plan::State state) {
    uint32_t found = 0;
    for (uint32_t i = 0; i < count; ++i) found += snapshot_->plan().entry(i).state == state ? 1 : 0;
    return found;
  }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  std::vector<uint32_t> numbers_;
  SnapshotPtr snapshot_;
};

TEST_F(PlannedTest, PrintsWhatParserAndPrinterDo) {
  char title[] = "title", author[] = "author";
  char *lists[][3] = {{nullptr}, {title, nullptr}, {author, title, nullptr}, {author, nullptr}};
  for (auto &attributes : lists)
    for (const bool walks : {false, true, true}) {
      if (walks) snapshot_ = Snapshot::open(catalog_.path().c_str());
      EXPECT_EQ(print(0, count, attributes, walks), parsed(0, count, attributes)) << walks;
      EXPECT_EQ(print(7, 150, attributes, walks), parsed(7, 150, attributes)) << "the plan is known";
    }
}

TEST_F(PlannedTest, AWalkFindsOutAboutMostRecordsAtOnce) {
  EXPECT_EQ(planned(Plan::unknown), count);
  PlannedDescriptions(*snapshot_, nullptr, nullptr).plan(0, numbers_.data(), count);
  EXPECT_GT(planned(Plan::as_stored), count / 4);
  EXPECT_GT(planned(Plan::other), 0u);
  print(0, count, nullptr, false);
  EXPECT_EQ(planned(Plan::unknown), 0u);
}

TEST_F(PlannedTest, AFewUnknownRecordsAreLookedUpOneByOne) {
  PlannedDescriptions(*snapshot_, nullptr, nullptr).plan(10, numbers_.data() + 10, 1);
  EXPECT_EQ(planned(Plan::unknown), count);
  print(10, 1, nullptr, true);
  EXPECT_EQ(planned(Plan::unknown), count - 1);
}

TEST_F(PlannedTest, NumbersFarApartAreLookedUpOneByOne) {
  numbers_[3] = 0xFFFFFFFF;
  PlannedDescriptions(*snapshot_, nullptr, nullptr).plan(0, numbers_.data(), count);
  EXPECT_EQ(planned(Plan::unknown), count);
}

TEST_F(PlannedTest, ANumberMayHaveSeveralPositions) {
  numbers_[1] = numbers_[2] = numbers_[150];
  EXPECT_EQ(print(0, count, nullptr, true), parsed(0, count, nullptr));
}

/// The file is cut under an open snapshot, against the rules.
TEST_F(PlannedTest, ARecordThatIsGoneFromItsPlaceIsReported) {
  print(0, count, nullptr, true);
  ASSERT_EQ(::truncate(catalog_.path().c_str(), 4096), 0);
  const support::Diagnostics diagnostics;
  const CsioPtr output = make_csio();
  PlannedDescriptions descriptions(*snapshot_, nullptr, output.get());
  for (uint32_t i = 0; i < count; ++i) EXPECT_FALSE(descriptions.print(i, numbers_[i])) << i;
  EXPECT_EQ(output->length, 0u);
  const std::string text = diagnostics.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), count) << text.substr(0, 500);
}

TEST_F(PlannedTest, RecordsForWhichAnAnswerHasNoRoomAreReported) {
  print(0, count, nullptr, true);
  const CsioPtr output = make_csio();
  csio_append(output.get(), "x", 1);
  csio_convert2file(output.get());
  PlannedDescriptions descriptions(*snapshot_, nullptr, output.get());
  const auto size = static_cast<uint32_t>(record(1).size());
  output->length = UINT32_MAX - 4096 - 2 * size;
  const support::Diagnostics diagnostics;
  EXPECT_TRUE(descriptions.print(0, 1));
  EXPECT_TRUE(descriptions.print(0, 1));
  EXPECT_FALSE(descriptions.print(0, 1)) << "what is printed and not yet appended counts";
  EXPECT_EQ(diagnostics.text(), "ERROR: No room in the answer for catalog-database: key 00000001\n");
  descriptions.flush();
  EXPECT_EQ(output->length, UINT32_MAX - 4096);
}

TEST_F(PlannedTest, APlanTakesMemoryForThePartsThatAreAskedFor) {
  Plan plan;
  ASSERT_TRUE(plan.prepare(10000));
  for (const uint32_t position : {9999u, 0u, 4095u, 4096u}) {
    EXPECT_EQ(plan.entry(position).state, Plan::unknown);
    plan.entry(position) = {position, 1, Plan::as_stored};
  }
  for (const uint32_t position : {9999u, 0u, 4095u, 4096u}) EXPECT_EQ(plan.entry(position).offset, position);
  host.allocations = 0;
  host.fail_allocation = 2;
  EXPECT_FALSE(Plan().prepare(5));
  host.fail_allocation = 0;
}

}  // namespace
