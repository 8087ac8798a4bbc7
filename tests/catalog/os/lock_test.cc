// SPDX-License-Identifier: MIT
/// A second writer of a catalog waits for the first, and names it.
#include "catalog/os/lock.h"

#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/os/file.h"
#include "hosts/rdmd/rdmd_process.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

using support::Finished;

const std::string described = rd("http://localhost/1", {{"title", "One"}});

/// FirstWriter is a minidba that holds the lock while it reads an empty pipe.
class FirstWriter {
 public:
  explicit FirstWriter(const CatalogFiles &catalog) : pipe_(catalog.path(".pipe")) {
    ::mkfifo(pipe_.c_str(), 0600);
    process_ = support::start(catalog.command({"update"}), pipe_, catalog.path(".out1"), catalog.path(".err1"));
    writer_ = catalog::open_file(pipe_, O_WRONLY);
  }
  FirstWriter(const FirstWriter &) = delete;
  FirstWriter &operator=(const FirstWriter &) = delete;
  ~FirstWriter() { finish(); }

  std::string process() const { return std::to_string(process_); }
  void finish() {
    if (!writer_) return;
    writer_ = HostFileGuard();
    support::wait_for(process_);
  }

 private:
  std::string pipe_;
  pid_t process_;
  HostFileGuard writer_;
};

class Locking : public testing::Test {
 protected:
  /// await_lock waits until another process holds the lock.
  void await_lock() const {
    EXPECT_TRUE(support::eventually([&] {
      const HostFileGuard file = catalog::open_file(lock_, O_RDONLY);
      return file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
    }));
  }

  CatalogFiles catalog_;
  const std::string lock_ = catalog::Lock::path_for(catalog_.path());
};

TEST_F(Locking, ASecondWriterGivesUpWhenItsTimeIsOver) {
  const FirstWriter first(catalog_);
  await_lock();
  const std::string holder = "process " + first.process() + " (minidba)";
  const std::string waits = "minidba: waiting for " + holder + ", which holds " + lock_ + "\n";
  const struct {
    std::vector<std::string> options;
    std::string note, time;
  } rows[] = {{{"--wait", "0"}, "", "0 seconds"},
              {{"--wait", "0.3"}, waits, "0.3 seconds"},
              {{"--wait", "0.1", "--quiet"}, "", "0.1 seconds"}};
  for (const auto &row : rows) {
    std::vector<std::string> words = row.options;
    words.insert(words.begin(), "update");
    const Finished finished = catalog_.run(words, described);
    EXPECT_EQ(finished.status, 2) << row.time;
    EXPECT_EQ(finished.out, "") << row.time;
    EXPECT_EQ(finished.errors,
              row.note + "minidba: cannot lock " + lock_ + ": " + holder + " still holds it after " + row.time + "\n");
  }
}

// The first writer makes no catalog and removes the lock file; the second has to lock another one.
TEST_F(Locking, ASecondWriterWaitsWithoutLimitByDefault) {
  FirstWriter first(catalog_);
  await_lock();
  support::write_file(catalog_.path(".in2"), described);
  support::write_file(catalog_.path(".err2"), "");
  const std::string errors = catalog_.path(".err2"), out = catalog_.path(".out2");
  const pid_t second = support::start(catalog_.command({"update"}), catalog_.path(".in2"), out, errors);
  const std::string waits =
      "minidba: waiting for process " + first.process() + " (minidba), which holds " + lock_ + "\n";
  EXPECT_TRUE(support::eventually([&] { return support::read_file(errors) == waits; }));
  first.finish();
  EXPECT_EQ(support::wait_for(second), 0);
  EXPECT_EQ(support::read_file(out), "1\n");
  EXPECT_EQ(support::read_file(errors), waits + "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected\n");
  EXPECT_TRUE(support::file_exists(lock_)) << "created by the second writer, which made a catalog";
}

// A child of the process that took the lock may hold it: flock(1) starts a command and may end before it.
TEST_F(Locking, AnUnidentifiedHolderIsReportedAsAnotherProcess) {
  catalog_.update(described);
  const HostFileGuard file = catalog::open_file(lock_, O_RDWR);
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::flock(file.get(), LOCK_EX));
  ASSERT_EQ(support::wait_for(child), 0);
  const Finished finished = catalog_.run({"expire", "--wait", "0"});
  EXPECT_EQ(finished.errors, "minidba: cannot lock " + lock_ + ": another process still holds it after 0 seconds\n");
}

// Regression: a refused update or import of a new catalog left its lock file.
TEST_F(Locking, LeavesNoFileIfItMakesNoCatalog) {
  for (const std::vector<std::string> &words : {std::vector<std::string>{"update"}, {"import"}}) {
    EXPECT_NE(catalog_.run(words, "nothing").status, 0);
    EXPECT_TRUE(catalog_.files().empty()) << words[0];
  }
  EXPECT_EQ(catalog_.update(described).status, 0);
  EXPECT_EQ(catalog_.run({"update"}, "nothing").status, 1);
  EXPECT_TRUE(support::file_exists(lock_)) << "the lock of a catalog stays";
}

TEST_F(Locking, LeavesAFileThatWasThereBefore) {
  support::write_file(lock_, "");
  EXPECT_EQ(catalog_.run({"update"}, "nothing").status, 1);
  EXPECT_TRUE(support::file_exists(lock_));
}

TEST_F(Locking, IsExclusiveWhileTheFileIsCreatedAndRemoved) {
  std::atomic<int> holders = 0, rounds = 0;
  const auto work = [&] {
    for (int i = 0; i < 200; ++i) {
      const catalog::Lock lock(catalog_.path());
      EXPECT_EQ(++holders, 1);
      std::this_thread::yield();
      --holders;
      ++rounds;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(rounds, 800);
  EXPECT_TRUE(catalog_.files().empty());
}

}  // namespace
