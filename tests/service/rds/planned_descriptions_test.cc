// SPDX-License-Identifier: MIT
#include "service/rds/planned_descriptions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/support/catalog.h"
#include "service/support/sending.h"
#include "support/diagnostics.h"
#include "support/file_limit.h"
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
    {
      const DatabasePtr database(dba_open(catalog_.path().c_str(), "w"));
      for (uint32_t number = 1; number <= count; ++number) {
        put(database.get(), number, record(number));
        numbers_.push_back(number);
      }
    }
    open();
  }
  /// open opens a snapshot whose index has the numbers.
  void open() {
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    for (const uint32_t number : numbers_) entries.emplace_back(static_cast<uint32_t>(entries.size()) + 1, number);
    catalog_.index(entries);
    snapshot_ = Snapshot::open(catalog_.path().c_str());
    ASSERT_NE(snapshot_, nullptr);
  }
  void TearDown() override { snapshot_.reset(); }

  /// bind_slices makes the host send slices, as short as they may be, and views, as long as they may be.
  static void bind_slices() {
    slices = 0;
    least_slice = 1;
    view_share = 1;
    qxapi_bind_slices([](host_net *socket, const host_slice *slice) {
      ++slices;
      return support::send_slice(socket, slice);
    });
  }
  static inline int slices = 0;  // sent

  static std::string record(uint32_t number) {
    if (number % 50 == 0)
      return soif("DOCUMENT", "u", {{"author-1", "A"}, {"title", std::string(size_t{number} * 1000, 'x')}});
    return number % 10 == 0 ? canonical(number) + "\n" : canonical(number);
  }
  static void put(DB *database, uint32_t number, std::string bytes) {
    char key[9];
    std::snprintf(key, sizeof key, "%08x", number);
    DBT name{key, 8};
    const DBT value{bytes.data(), bytes.size()};
    ASSERT_EQ(dba_put(database, &name, &value), 0);
  }

  /// print prints positions of the index by the plan; one by one if it may not walk.
  std::string print(uint32_t first, uint32_t wanted, char **attributes, bool walks) {
    Body output;
    PlannedDescriptions descriptions(*snapshot_, attributes, output);
    const uint32_t step = walks ? wanted : 1;
    for (uint32_t i = first; i < first + wanted; i += step)
      EXPECT_EQ(descriptions.print({i, step}), static_cast<int32_t>(step)) << i;
    return sent(std::move(output));
  }
  std::string sent(Body output) {
    host.sent.clear();
    EXPECT_EQ(std::move(output).send(&exchange_.session, &exchange_.request), 0);
    return host.sent;
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
    EXPECT_TRUE(snapshot_->plan().reserve(0, count));
    uint32_t found = 0;
    for (uint32_t i = 0; i < count; ++i) found += snapshot_->plan().entry(i).state == state ? 1 : 0;
    return found;
  }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  std::vector<uint32_t> numbers_;
  SnapshotPtr snapshot_;
  support::Exchange exchange_{"POST", "/rdm/rd-request"};
  support::SendingLimits limits_;
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
  print(0, count, nullptr, true);
  EXPECT_GT(planned(Plan::as_stored), count * 3 / 4);
  EXPECT_GT(planned(Plan::other), 0u);
  EXPECT_EQ(planned(Plan::unknown), 0u);
}

TEST_F(PlannedTest, AFewUnknownRecordsAreLookedUpOneByOne) {
  print(10, 1, nullptr, true);
  EXPECT_EQ(planned(Plan::unknown), count - 1);
}

TEST_F(PlannedTest, NumbersFarApartAreLookedUpOneByOne) {
  numbers_[3] = 0xFFFFFFFF;
  open();
  const support::Diagnostics diagnostics;
  Body output;
  EXPECT_EQ(PlannedDescriptions(*snapshot_, nullptr, output).print({0, count}), int32_t{count} - 1);
  EXPECT_EQ(diagnostics.text(), "WARNING: No entry in catalog-database: key ffffffff\n");
  EXPECT_EQ(planned(Plan::unknown), 0u);
}

TEST_F(PlannedTest, ANumberMayHaveSeveralPositions) {
  numbers_[1] = numbers_[2] = numbers_[150];
  open();
  EXPECT_EQ(print(0, count, nullptr, true), parsed(0, count, nullptr));
}

/// The file is cut under an open snapshot, against the rules.
TEST_F(PlannedTest, ARecordThatIsGoneFromItsPlaceIsReported) {
  print(0, count, nullptr, true);
  ASSERT_EQ(::truncate(catalog_.path().c_str(), 4096), 0);
  const support::Diagnostics diagnostics;
  Body output;
  EXPECT_EQ(PlannedDescriptions(*snapshot_, nullptr, output).print({0, count}), 0);
  EXPECT_EQ(output.length(), 0u);
  const std::string text = diagnostics.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), count) << text.substr(0, 500);
}

TEST_F(PlannedTest, RecordsForWhichAnAnswerHasNoRoomAreReported) {
  numbers_[1] = numbers_[2] = numbers_[0];
  open();
  print(0, count, nullptr, true);
  snapshot_->plan().entry(1) = snapshot_->plan().entry(2) = snapshot_->plan().entry(0);
  for (const bool in_slices : {false, true}) {
    if (in_slices) bind_slices();
    Body output;
    csio_append(output.buffer(), "x", 1);
    csio_convert2file(output.buffer());
    const auto size = static_cast<uint32_t>(record(1).size());
    output.buffer()->length = UINT32_MAX - 4096 - 2 * size;
    const support::Diagnostics diagnostics;
    EXPECT_EQ(PlannedDescriptions(*snapshot_, nullptr, output).print({0, 3}), 2);
    EXPECT_EQ(diagnostics.text(), "ERROR: No room in the answer for catalog-database: key 00000001\n") << in_slices;
    EXPECT_EQ(output.length(), UINT32_MAX - 4096);
    EXPECT_EQ(output.sliced(), in_slices ? 2 * size : 0u);
  }
}

TEST_F(PlannedTest, AHostThatSendsSlicesGetsThemForWholeRecords) {
  const std::string right = parsed(0, count, nullptr);
  bind_slices();
  EXPECT_EQ(print(0, count, nullptr, true), right);
  EXPECT_EQ(slices, 20) << "between the twenty records that are not as they print";
  EXPECT_EQ(print(7, 150, nullptr, true), parsed(7, 150, nullptr)) << "the plan is known";
}

TEST_F(PlannedTest, AHostThatSendsSlicesGetsViewsOfSelectedAttributes) {
  bind_slices();
  char title[] = "title", author[] = "author", author_1[] = "author-1", none[] = "{";
  char *lists[][3] = {
      {title, nullptr}, {author, title, nullptr}, {author, nullptr}, {author_1, nullptr}, {none, nullptr}};
  for (auto &attributes : lists)
    for (const bool made : {false, true}) {
      slices = 0;
      EXPECT_EQ(snapshot_->view().has(attributes, {0, count}), made);
      EXPECT_EQ(print(0, count, attributes, true), parsed(0, count, attributes)) << attributes[0];
      EXPECT_EQ(slices, 20) << "between the twenty records that are not as they print";
      EXPECT_EQ(print(7, 150, attributes, true), parsed(7, 150, attributes)) << attributes[0];
      EXPECT_EQ(print(7, 150, attributes, false), parsed(7, 150, attributes)) << attributes[0];
    }
  EXPECT_EQ(planned(Plan::unknown), count) << "the plan is for whole records";
}

TEST_F(PlannedTest, AViewHasTheAttributesAndThePositionsThatItWasMadeFor) {
  view_share = 1;
  char title[] = "title", titles[] = "titles", author[] = "author";
  char *one[] = {title, nullptr}, *two[] = {title, author, nullptr}, *other[] = {titles, nullptr}, *none[] = {nullptr};
  View view;
  EXPECT_FALSE(view.has(none, {0, 1}));
  ASSERT_TRUE(view.make(snapshot_->locator(), snapshot_->index(), one, {50, 100}));
  EXPECT_TRUE(view.has(one, {50, 100}) && view.has(one, {149, 1}) && view.has(one, {60, 10}));
  EXPECT_FALSE(view.has(one, {49, 10}) || view.has(one, {51, 100}) || view.has(one, {151, 0}) ||
               view.has(one, {50, UINT32_MAX}));
  EXPECT_FALSE(view.has(two, {50, 100}) || view.has(other, {50, 100}) || view.has(none, {50, 100}));
  ASSERT_TRUE(view.make(snapshot_->locator(), snapshot_->index(), two, {0, count}));
  EXPECT_TRUE(view.has(two, {0, count}));
  EXPECT_FALSE(view.has(one, {50, 100}));
}

TEST_F(PlannedTest, ViewsAreRightInWhateverOrderTheNumbersAre) {
  bind_slices();
  char title[] = "title", *attributes[] = {title, nullptr};
  const auto expect_right = [&](const char *what) {
    open();
    const auto all = static_cast<uint32_t>(numbers_.size());
    for (const uint32_t first : {0u, 5u}) {
      EXPECT_EQ(print(first, all - first, attributes, true), parsed(first, all - first, attributes)) << what << first;
      EXPECT_TRUE(snapshot_->view().has(attributes, {first, all - first})) << what << first;
    }
  };
  std::reverse(numbers_.begin(), numbers_.end());
  expect_right("the newest first, from ");
  for (size_t i = 0; i < numbers_.size(); ++i) std::swap(numbers_[i], numbers_[i * 7919 % numbers_.size()]);
  expect_right("in no order, from ");
  std::fill_n(numbers_.begin() + 10, 20, numbers_[3]);
  expect_right("one at several positions, from ");
  std::erase_if(numbers_, [](uint32_t number) { return number % 7 == 0; });
  expect_right("with gaps, from ");
}

TEST_F(PlannedTest, AnIndexThatCannotBeReadEndsThePrintingWithoutAReport) {
  char title[] = "title", *all[] = {nullptr}, *titles[] = {title, nullptr};
  for (char **attributes : {all, titles}) {
    open();
    bind_slices();
    ASSERT_EQ(::truncate((catalog_.path() + ".idx").c_str(), 8), 0);
    const support::Diagnostics diagnostics;
    Body output;
    EXPECT_EQ(PlannedDescriptions(*snapshot_, attributes, output).print({0, count}), 0);
    EXPECT_TRUE(snapshot_->index().failed());
    EXPECT_EQ(diagnostics.text(), "");
  }
}

TEST_F(PlannedTest, AViewThatIsTooLongIsNotMade) {
  bind_slices();
  view_share = 1000;
  char title[] = "title", *attributes[] = {title, nullptr};
  for (int i = 0; i < 2; ++i) EXPECT_EQ(print(0, count, attributes, true), parsed(0, count, attributes));
  EXPECT_EQ(slices, 0);
  view_share = 1;
  EXPECT_FALSE(snapshot_->view().make(snapshot_->locator(), snapshot_->index(), attributes, {0, count}))
      << "it does not try the same again";
}

TEST_F(PlannedTest, AViewNeedsMemoryFilesAndNumbersNearEachOther) {
  view_share = 1;
  char title[] = "title", *attributes[] = {title, nullptr};
  const auto make = [&] { return View().make(snapshot_->locator(), snapshot_->index(), attributes, {0, count}); };
  EXPECT_TRUE(make());
  const auto make_without = [&](long number) {
    host.allocations = 0;
    host.fail_allocation = number;
    const bool made = make();
    host.fail_allocation = 0;
    return made;
  };
  for (const long number : {1, 2, 3}) EXPECT_FALSE(make_without(number)) << number;
  EXPECT_TRUE(make_without(4)) << "the plan has room for the map of the numbers";
  {
    const support::FileLimit limit(0);
    EXPECT_FALSE(make());
  }
  numbers_[3] = count + 1;
  open();
  EXPECT_TRUE(make());
  EXPECT_FALSE(make_without(4));
  numbers_[3] = 0xFFFFFFFF;
  open();
  EXPECT_FALSE(make());
}

TEST_F(PlannedTest, ShortRunsOfRecordsAreCopied) {
  bind_slices();
  least_slice = 9 * record(1).size() * 2;
  EXPECT_EQ(print(0, count, nullptr, true), parsed(0, count, nullptr));
  EXPECT_EQ(slices, 0);
}

TEST_F(PlannedTest, SlicesThatCannotBeNotedAreCopied) {
  print(0, count, nullptr, true);
  bind_slices();
  const std::string right = parsed(0, count, nullptr);
  Body output;
  PlannedDescriptions descriptions(*snapshot_, nullptr, output);
  host.allocations = 0;
  host.fail_allocation = 1;
  EXPECT_EQ(descriptions.print({0, 9}), 9);
  host.fail_allocation = 0;
  EXPECT_EQ(output.sliced(), 0u);
  EXPECT_EQ(descriptions.print({9, count - 9}), int32_t{count} - 9);
  EXPECT_GT(output.sliced(), 0u);
  EXPECT_EQ(sent(std::move(output)), right);
}

TEST_F(PlannedTest, ABodyHasALimitedNumberOfSlices) {
  bind_slices();
  Body output;
  const host_slice slice{snapshot_->locator().file(), snapshot_->plan().file(), 0, 1, 1};
  int added = 0;
  while (output.add_slice(slice)) ++added;
  EXPECT_EQ(added, 512);
  EXPECT_EQ(output.length(), 512u);
}

TEST_F(PlannedTest, ASliceThatIsNotSentIsReported) {
  bind_slices();
  for (const bool writes : {false, true}) {
    Body output;
    EXPECT_EQ(PlannedDescriptions(*snapshot_, nullptr, output).print({0, 50}), 50);
    host.fail_net_write = writes;
    if (!writes) qxapi_bind_slices([](host_net *, const host_slice *) -> int64_t { return -1; });
    EXPECT_EQ(std::move(output).send(&exchange_.session, &exchange_.request), -1);
    EXPECT_EQ(host.reports.back(), "0 rdm-service: RDM Error during transmission.\n");
    bind_slices();
  }
}

TEST_F(PlannedTest, AnEntryHasTheFormInWhichHostsReadIt) {
  print(0, count, nullptr, true);
  host_place place{};
  ASSERT_EQ(::pread(snapshot_->plan().file(), &place, sizeof place, 4 * sizeof place), ssize_t{sizeof place});
  EXPECT_EQ(place.offset, snapshot_->plan().entry(4).offset);
  EXPECT_EQ(place.size, record(5).size());
  EXPECT_EQ(place.note, Plan::as_stored);
}

TEST_F(PlannedTest, APlanTakesMemoryForThePartsThatAreReserved) {
  Plan plan;
  ASSERT_TRUE(plan.prepare(1'000'000));
  const auto blocks = [&] {
    struct stat status {};
    EXPECT_EQ(::fstat(plan.file(), &status), 0);
    return status.st_blocks * 512;
  };
  EXPECT_EQ(blocks(), 0);
  ASSERT_TRUE(plan.reserve(999'999, 1) && plan.reserve(255, 2) && plan.reserve(0, 1) && plan.reserve(500, 0));
  EXPECT_EQ(blocks(), 3 * 4096);
  for (const uint32_t position : {999'999u, 0u, 255u, 256u}) {
    EXPECT_EQ(plan.entry(position).state, Plan::unknown);
    plan.entry(position) = {position, 1, Plan::as_stored};
  }
  for (const uint32_t position : {999'999u, 0u, 255u, 256u}) EXPECT_EQ(plan.entry(position).offset, position);
  ASSERT_TRUE(plan.reserve(768, 256) && plan.reserve(100, 1024));
  EXPECT_EQ(blocks(), 6 * 4096) << "each part once";
  EXPECT_EQ(plan.entry(256).offset, 256) << "it was reserved before";
  EXPECT_EQ(::ftruncate(plan.file(), 0), -1) << "its pages stay";
}

TEST_F(PlannedTest, APlanNeedsMemoryAndADescriptor) {
  host.allocations = 0;
  host.fail_allocation = 1;
  EXPECT_FALSE(Plan().prepare(5));
  host.fail_allocation = 0;
  const support::FileLimit limit(0);
  EXPECT_FALSE(Plan().prepare(5));
}

}  // namespace
