// SPDX-License-Identifier: MIT
/// rdmctl import and publish while files fail: its messages must be true, and a submission is imported completely or
/// not at all.
///
/// Unless RDM_IO_FAULTS is "all", each errno is tried on one call of each class.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dba/guard.h"
#include "faults/io_fault.h"
#include "tools/rdmctl/service_files.h"

using namespace rdm;

namespace {

using faults::IoFault;
using support::Finished;

/// More than a request body keeps in memory.
constexpr int descriptions = 60;

std::string delivery() {
  const std::string body(1000, 'b');
  std::string stream;
  for (int i = 1; i <= descriptions; ++i)
    stream += "@FILE { http://localhost/" + std::to_string(i) + "\nbody{1000}:\t" + body + "\n}\n";
  return stream;
}

class RdmctlIo : public testing::Test {
 protected:
  faults::Call call() const {
    return {"rdmctl", {program, "import", "--config", service_.config(), "--csid", csid, file_}, ""};
  }

  void reset() const {
    for (const char *suffix : {"", ".url", ".idx", ".lock"}) std::filesystem::remove(service_.database() + suffix);
  }

  /// imported returns the number of descriptions in the catalog.
  int imported() const {
    const DatabasePtr database(dba_open(service_.database().c_str(), "r"));
    DBT key{}, value{};
    int count = 0;
    for (int result = database ? dba_first(database.get(), &key, &value) : 1; result == 0; ++count)
      result = dba_next(database.get(), &key, &value);
    return count;
  }

  std::vector<std::string> temporary_files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(service_.temporary_directory()))
      names.push_back(entry.path());
    return names;
  }

  void expect_honest(const IoFault &fault, const Finished &finished) const {
    ASSERT_LT(finished.status, 128) << "ended by a signal";
    if (finished.status == 0) {
      EXPECT_EQ(finished.out, "Accepted " + std::to_string(descriptions) + " RDs from Unknown-Source\n");
      EXPECT_EQ(imported(), descriptions);
    } else {
      EXPECT_FALSE(fault.is_harmless()) << finished.errors;
      EXPECT_THAT(finished.errors, testing::HasSubstr("rdmctl: "));
      EXPECT_TRUE(imported() == 0 || imported() == descriptions) << imported() << ": " << finished.errors;
    }
  }

  /// expect_clean accepts temporary files only if they could not be found, listed or removed, and expects the next run
  /// to remove them.
  void expect_clean(const IoFault &fault) const {
    if (temporary_files().empty()) return;
    EXPECT_THAT(fault.kind, testing::AnyOf("stat", "unlink", "open", "directory"))
        << testing::PrintToString(temporary_files());
    support::run(call().arguments, call().input);
    EXPECT_THAT(temporary_files(), testing::IsEmpty());
  }

  ServiceFiles service_;
  std::string file_ = service_.write("delivery", delivery());
};

TEST_F(RdmctlIo, ReportsTheOutcomeAndImportsAllOrNothing) {
  const auto calls = faults::count_calls(call());
  const auto faults = faults::io_faults(calls);
  EXPECT_EQ(imported(), descriptions);
  for (const char *kind : {"fopen", "fread", "open", "read", "write"}) EXPECT_EQ(calls.count(kind), 1u) << kind;
  EXPECT_GT(faults.size(), 10u);
  for (const IoFault &fault : faults) {
    SCOPED_TRACE(testing::PrintToString(fault));
    reset();
    expect_honest(fault, faults::run_with(fault, call()));
    expect_clean(fault);
  }
}

class PublishIo : public RdmctlIo {
 protected:
  faults::Call publish() const { return {"rdmctl", {program, "publish", service_.database(), file_}, ""}; }

  /// expect_true accepts a report that is not kept as status 1; every other failure must have changed nothing, unless
  /// it says that a file is replaced.
  void expect_true(const IoFault &fault, const Finished &finished) const {
    ASSERT_LT(finished.status, 128) << "ended by a signal";
    const bool is_published = imported() == descriptions;
    EXPECT_TRUE(is_published || imported() == 0) << imported();
    if (finished.status == 0) {
      EXPECT_TRUE(is_published) << finished.errors;
      return;
    }
    EXPECT_FALSE(fault.is_harmless()) << finished.errors;
    EXPECT_THAT(finished.errors, testing::HasSubstr("rdmctl: "));
    EXPECT_EQ(finished.status == 1, is_published) << finished.errors;
  }

  /// expect_mended runs the next command, after which the index must be of the database.
  void expect_mended() const {
    const Finished next = support::run(publish().arguments, "");
    EXPECT_EQ(next.status, 0) << next.errors;
    const Finished verified = support::run({support::in_build("bin/minidba"), "-d", service_.database(), "verify"});
    EXPECT_EQ(verified.out, "sound: 60 descriptions, 60 index entries\n") << verified.errors;
  }
};

TEST_F(PublishIo, ReportsTheOutcomeAndPublishesAllOrNothing) {
  const auto calls = faults::count_calls(publish());
  const auto faults = faults::io_faults(calls);
  EXPECT_EQ(imported(), descriptions);
  EXPECT_GT(faults.size(), 10u);
  for (const IoFault &fault : faults) {
    SCOPED_TRACE(testing::PrintToString(fault));
    reset();
    std::filesystem::remove(service_.database() + ".imports");
    expect_true(fault, faults::run_with(fault, publish()));
    expect_mended();
  }
}

}  // namespace
