// SPDX-License-Identifier: MIT
#include "service/rds/snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "service/csid.h"
#include "service/support/catalog.h"
#include "service/support/question.h"
#include "service/support/trace.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::handled;
using support::Question;
using support::soif;
using support::step_by_step;

std::string description(uint32_t number) {
  return soif("DOCUMENT", "http://localhost/" + std::to_string(number), {{"title", "T" + std::to_string(number)}});
}

/// The bytes that the service has read, and where a read or a seek fails.
int64_t bytes_read;
long allowed_reads;

qxapi_host counting_host() {
  qxapi_host table = support::memory_host();
  table.read = [](host_fd fd, void *bytes, int32_t count) {
    if (--allowed_reads < 0) {
      errno = EIO;
      return -1;
    }
    const int32_t got = support::memory_host().read(fd, bytes, count);
    bytes_read += std::max(got, 0);
    return got;
  };
  bytes_read = 0;
  allowed_reads = 1000000;
  return table;
}

/// A catalog of four descriptions whose files have not changed for an hour.
class SnapshotTest : public support::HostTest {
 protected:
  void SetUp() override {
    for (uint32_t number = 1; number <= 4; ++number) catalog_.put(number, description(number));
    catalog_.index({{1000, 1}, {2000, 2}, {3000, 3}, {4000, 4}});
  }

  /// opened returns how often the handler opens a file of the catalog for a question.
  static long opened(const Question &question = {}) {
    const support::Trace trace;
    handled(question);
    const auto &calls = trace.calls();
    return std::count_if(calls.begin(), calls.end(), [](const auto &call) { return call.starts_with("open_read"); });
  }

  const char *path() const { return catalog_.path().c_str(); }
  std::string index_path() const { return catalog_.path() + ".idx"; }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + catalog_.path() + "\"\n"};
  support::Hour hour_;
};

TEST_F(SnapshotTest, StaysOpenBetweenRequests) {
  EXPECT_EQ(opened(), 2) << "index and database";
  EXPECT_EQ(opened(), 0);
  EXPECT_EQ(opened({"since Thu, 01 Jan 1970 00:30:00 GMT", "", ""}), 0);
  EXPECT_EQ(handled({}), step_by_step({}));
}

TEST_F(SnapshotTest, IsOpenedAgainAfterAnyChangeOfItsFiles) {
  const std::pair<const char *, void (*)(const std::string &)> changes[] = {
      {"rename",
       [](const std::string &path) {
         support::write_file(path + ".new", support::read_file(path));
         std::filesystem::rename(path + ".new", path);
       }},
      {"write", [](const std::string &path) { support::write_file(path, support::read_file(path)); }},
      {"truncation", [](const std::string &path) { std::filesystem::resize_file(path, 27); }},
      {"removal", [](const std::string &path) { std::filesystem::remove(path); }},
      {"permissions", [](const std::string &path) { ::chmod(path.c_str(), 0640); }},
  };
  for (const auto &[name, change] : changes)
    for (const std::string &file : {catalog_.path(), index_path()}) {
      const std::string before = support::read_file(file);
      handled({});
      EXPECT_NE(snapshots::current(path()), nullptr) << name;
      EXPECT_EQ(opened(), 0) << name;
      change(file);
      EXPECT_EQ(handled({}), step_by_step({})) << name << ' ' << file;
      std::filesystem::remove(file);
      support::write_file(file, before);
      EXPECT_EQ(handled({}), step_by_step({})) << name << ' ' << file;
    }
}

/// The times of a file count in steps: the second of two writes within a step leaves them as they are.
TEST_F(SnapshotTest, IsOpenedAgainUntilItsFilesAreOld) {
  static int64_t now;
  FileState state;
  ASSERT_TRUE(read_state(path(), state));
  file_clock = []() noexcept { return now; };
  const bool whole_seconds = state.changed % 1'000'000'000 == 0;
  now = state.changed + (whole_seconds ? 3'000'000'000 : 100'000'000);
  EXPECT_FALSE(is_settled(state));
  EXPECT_EQ(opened(), 2);
  EXPECT_EQ(opened(), 2);
  now = state.changed + 3'600'000'000'000;
  EXPECT_TRUE(is_settled(state));
  EXPECT_EQ(opened(), 2);
  EXPECT_EQ(opened(), 0);
  state.changed = 5'000'000'000;
  now = 8'000'000'000;
  EXPECT_FALSE(is_settled(state)) << "a file system that counts seconds";
  now = 8'000'000'001;
  EXPECT_TRUE(is_settled(state));
  now = 0;
  EXPECT_FALSE(is_settled(state)) << "the clock was put back";
}

TEST_F(SnapshotTest, IsForgottenWhenTheServicesAreConfiguredAgain) {
  const long descriptors = support::open_descriptors();
  handled({});
  EXPECT_EQ(support::open_descriptors(), descriptors + 3) << "index, database and plan";
  {
    const support::Registry again(directory_, "csid=\"c\" catalog-database=\"" + catalog_.path() + "\"\n");
    EXPECT_EQ(support::open_descriptors(), descriptors);
    EXPECT_EQ(opened(), 2);
  }
  EXPECT_EQ(support::open_descriptors(), descriptors) << "csid_terminate";
}

TEST_F(SnapshotTest, ClosesTheOneNotUsedForTheLongestTime) {
  const long descriptors = support::open_descriptors();
  std::vector<std::string> paths{catalog_.path()};
  for (int i = 1; i <= snapshots::limit; ++i) {
    paths.push_back(directory_.path("copy" + std::to_string(i)));
    std::filesystem::copy_file(catalog_.path(), paths.back());
    std::filesystem::copy_file(index_path(), paths.back() + ".idx");
  }
  const auto is_open = [](const std::string &name) {
    const support::Trace trace;
    return snapshots::current(name.c_str()) != nullptr && trace.calls().empty();
  };
  for (int i = 0; i < snapshots::limit; ++i) EXPECT_FALSE(is_open(paths[static_cast<size_t>(i)])) << i;
  EXPECT_TRUE(is_open(paths[0]));
  EXPECT_FALSE(is_open(paths.back())) << "takes the place of the second";
  EXPECT_EQ(support::open_descriptors(), descriptors + 3L * snapshots::limit);
  EXPECT_TRUE(is_open(paths[0]));
  EXPECT_TRUE(is_open(paths[2]));
  EXPECT_FALSE(is_open(paths[1]));
  EXPECT_FALSE(is_open(paths[3]));
}

TEST_F(SnapshotTest, HasDescriptorsThatCommandsDoNotInherit) {
  Snapshot *snapshot = snapshots::current(path());
  ASSERT_NE(snapshot, nullptr);
  int found = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry, gone);
    if (!target.starts_with(catalog_.path())) continue;
    EXPECT_EQ(::fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC) << target;
    ++found;
  }
  EXPECT_EQ(found, 2);
}

TEST_F(SnapshotTest, IsNotUsedWhileTheDatabasesAreLocked) {
  handled({});
  dbSetOrClearDBLock(0);
  EXPECT_EQ(snapshots::current(path()), nullptr);
  EXPECT_EQ(handled({}), step_by_step({}));
  dbSetOrClearDBLock(1);
  EXPECT_NE(snapshots::current(path()), nullptr);
}

TEST_F(SnapshotTest, NeedsASoundIndexAndASoundDatabase) {
  const auto entries = [](uint32_t count) { return std::vector<std::pair<uint32_t, uint32_t>>(count, {1, 1}); };
  const std::string indexes[] = {"", "short", support::index_bytes(0x3EB1CA0F, 1, entries(1)),
                                 support::index_bytes(0x3EB1CA0E, 2, entries(1)),
                                 support::index_bytes(0x3EB1CA0E, 0x80000000, entries(1))};
  for (const std::string &bytes : indexes) {
    support::write_file(index_path(), bytes);
    EXPECT_EQ(snapshots::current(path()), nullptr) << bytes;
    EXPECT_EQ(handled({}), step_by_step({})) << bytes;
  }
  catalog_.index({{1, 1}});
  EXPECT_NE(snapshots::current(path()), nullptr);
  support::write_file(path(), "no database");
  EXPECT_EQ(snapshots::current(path()), nullptr);
  std::filesystem::remove(path());
  EXPECT_EQ(snapshots::current(path()), nullptr);
  std::filesystem::create_directory(path());
  EXPECT_EQ(snapshots::current(path()), nullptr);
}

/// An index of a hundred thousand entries has 2 MB.
TEST_F(SnapshotTest, ReadsOnlyThePartOfTheIndexThatItNeeds) {
  std::vector<std::pair<uint32_t, uint32_t>> entries;
  for (uint32_t i = 0; i < 100000; ++i) entries.emplace_back(i + 1, i % 4 + 1);
  catalog_.index(entries);
  const qxapi_host table = counting_host();
  qxapi_bind(&table);
  EXPECT_EQ(handled({"all", "1", ""}).hits, "1");
  EXPECT_LT(bytes_read, 16384);
  bytes_read = 0;
  EXPECT_EQ(handled({"since Fri, 02 Jan 1970 03:46:30 GMT", "", ""}).hits, "11");
  EXPECT_LT(bytes_read, 131072) << "a block at each of 8 steps, and a page for each description";
}

TEST_F(SnapshotTest, WhoseIndexCannotBeReadIsDropped) {
  const qxapi_host table = counting_host();
  qxapi_bind(&table);
  EXPECT_EQ(handled({}).hits, "4");
  catalog_.index({{1000, 1}, {2000, 2}});
  const support::Reply right = step_by_step({});
  // The header of the index, that of the database; then the entries fail.
  allowed_reads = 2;
  EXPECT_EQ(handled({}).bytes.find("Server Error: Cannot service request") != std::string::npos, true);
  allowed_reads = 1000000;
  EXPECT_EQ(handled({}), right);
}

TEST_F(SnapshotTest, IsNotNeededForAnAnswer) {
  for (long failing = 1; failing < 60; ++failing) {
    snapshots::drop_all();
    host.allocations = 0;
    host.fail_allocation = failing;
    Snapshot *snapshot = snapshots::current(path());
    host.fail_allocation = 0;
    if (snapshot != nullptr) break;
    ASSERT_LT(failing, 50);
    EXPECT_EQ(handled({}), step_by_step({})) << failing;
  }
}

}  // namespace
