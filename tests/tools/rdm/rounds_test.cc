// SPDX-License-Identifier: MIT
/// A mirror of a catalog that changes between and during its runs, through a proxy that disturbs them, of a server that
/// is killed. RDM_MIRROR_ROUNDS says how many rounds each test makes, RDM_SEED repeats a run.
#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>

#include <gtest/gtest.h>

#include "catalog/catalog.h"
#include "catalog/record.h"
#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/process.h"
#include "tools/rdm/chaos_proxy.h"
#include "tools/rdm/served_catalog.h"

using namespace rdm;
using namespace rdm::client;

namespace {

constexpr int descriptions = 200;

using Records = std::map<std::string, std::string>;  // by URL

Records records_in(const std::string &target) {
  Records records;
  const auto add = [&](std::string_view record) { records[catalog::url_of(record).value()] = record; };
  if (std::filesystem::is_directory(target)) {
    for (const auto &entry : std::filesystem::directory_iterator(target)) add(support::read_file(entry.path()));
  } else {
    catalog::Catalog(target).each([&](uint32_t, std::string_view record) { add(record); });
  }
  return records;
}

/// Source changes a catalog at random and remembers every state that its server may have shown.
class Source {
 public:
  Source(unsigned seed, bool is_clock_back) : served_(descriptions), random_(seed) {
    if (is_clock_back) served_.set_clock_back();
    remember(records_in(served_.database()));
  }

  int port() const { return served_.port(); }
  size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random_); }
  bool chance(size_t of) { return below(of) == 0; }

  void change() {
    const std::lock_guard lock(mutex_);
    if (chance(3))
      erase();
    else
      update();
  }
  void restart() {
    const std::lock_guard lock(mutex_);
    served_.restart();
  }

  /// begin_round forgets all states but the present one. shown returns true if the server may have shown this one
  /// since; present returns true if it is the present one.
  void begin_round() {
    const std::lock_guard lock(mutex_);
    states_.erase(states_.begin(), states_.end() - 1);
  }
  bool shown(const Records &records) const {
    const std::lock_guard lock(mutex_);
    return std::find(states_.begin(), states_.end(), records) != states_.end();
  }
  const Records &present() const { return states_.back(); }

 private:
  void remember(Records records) { states_.push_back(std::move(records)); }

  /// update changes some descriptions and adds one. Until the index is written, the server shows the changed ones only.
  void update() {
    ServedCatalog::Titles titles;
    for (size_t i = below(8); i > 0; --i) titles.emplace_back(url(), title());
    titles.emplace_back("x:new/" + std::to_string(++made_), title());
    served_.update(titles, [this] {
      Records records = records_in(served_.database());
      records.erase("x:new/" + std::to_string(made_));
      remember(std::move(records));
    });
    remember(records_in(served_.database()));
  }
  void erase() {
    served_.erase({url()});
    remember(records_in(served_.database()));
  }
  std::string url() {
    return std::next(states_.back().begin(), static_cast<std::ptrdiff_t>(below(states_.back().size())))->first;
  }
  std::string title() { return std::string(below(2000) + 1, static_cast<char>('a' + below(26))); }

  mutable std::mutex mutex_;
  ServedCatalog served_;
  std::mt19937 random_;
  int made_ = 0;
  std::vector<Records> states_;
};

/// Round runs the client against the source through the proxy.
class Rounds {
 public:
  explicit Rounds(const std::string &target, bool is_clock_back = false)
      : seed_(support::number_from("RDM_SEED", std::random_device{}())),
        source_(seed_, is_clock_back),
        target_(directory_.path(target)),
        proxy_(
            source_.port(), [this] { return choose(); }, [this] { disturb(); }) {}

  void run(int rounds) {
    for (int i = 0; i < rounds; ++i) {
      SCOPED_TRACE("round " + std::to_string(i) + ", RDM_SEED=" + std::to_string(seed_));
      source_.begin_round();
      if (source_.chance(2)) source_.change();
      is_calm_ = false;
      const support::Finished wild = mirror();
      if (wild.status == 0) {
        ++disturbed_successes_;
        EXPECT_TRUE(source_.shown(records_in(target_)));
      }
      is_calm_ = true;
      const support::Finished calm = mirror();
      ASSERT_EQ(calm.status, 0) << calm.errors;
      ASSERT_EQ(records_in(target_), source_.present());
    }
    testing::Test::RecordProperty("disturbed_successes", disturbed_successes_);
  }

 private:
  support::Finished mirror() {
    return support::run({support::in_build("bin/rdm"), "mirror", proxy_.url(), target_, "--state",
                         directory_.path("state"), "--full-every", "0", "--retries", "30", "--retry-delay", "0.01"});
  }
  Fate choose() {
    Fate fate;
    if (is_calm_) return fate;
    fate.is_refused = source_.chance(5);
    if (source_.chance(2)) fate.cut = source_.below(100000) + 1;
    if (source_.chance(3)) fate.interval = source_.below(30000) + 1;
    fate.is_slow = source_.chance(3);
    return fate;
  }
  void disturb() {
    if (source_.chance(5))
      source_.restart();
    else
      source_.change();
  }

  int disturbed_successes_ = 0;
  unsigned seed_;
  support::TemporaryDirectory directory_;
  Source source_;
  std::string target_;
  std::atomic<bool> is_calm_ = false;
  ChaosProxy proxy_;
};

}  // namespace

TEST(MirrorRounds, DatabaseEqualsTheSourceAfterEachRunThatSucceeds) {
  Rounds("mirror.db").run(support::number_from("RDM_MIRROR_ROUNDS", 4));
}

TEST(MirrorRounds, DirectoryEqualsTheSourceAfterEachRunThatSucceeds) {
  Rounds("mirror/").run(support::number_from("RDM_MIRROR_ROUNDS", 4));
}

TEST(MirrorRounds, ClockOfTheSourceMayBePutBack) {
  Rounds("mirror.db", true).run(support::number_from("RDM_MIRROR_ROUNDS", 4));
}
