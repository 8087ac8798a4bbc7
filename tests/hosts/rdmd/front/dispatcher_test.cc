// SPDX-License-Identifier: MIT
/// How requests come to workers, with workers that a test controls.

#include "hosts/rdmd/front/dispatcher.h"

#include <chrono>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/refused_new.h"

using namespace rdm;
using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

/// TestWorker keeps its jobs until the test finishes them.
class TestWorker : public Worker {
 public:
  TestWorker(int number, Dispatcher &dispatcher, std::size_t capacity)
      : number_(number), capacity_(capacity), dispatcher_(dispatcher) {}

  int number() const override { return number_; }
  std::size_t capacity() const override { return capacity_; }
  JobPtr serve(JobPtr job) override {
    if (ended) return job;
    served += job->request.body;
    jobs_.push_back(std::move(job));
    return nullptr;
  }
  std::vector<JobPtr> take_back() override {
    std::vector<JobPtr> jobs;
    for (; jobs_.size() > 1; jobs_.pop_back()) jobs.insert(jobs.begin(), std::move(jobs_.back()));
    for (const JobPtr &job : jobs) taken_back += job->request.body;
    return jobs;
  }
  void kill() override { ++kills; }
  void reopen_logs() override { ++reopenings; }
  void retire() override { retired = true; }

  void finish() {
    const JobPtr job = std::move(jobs_.front());
    jobs_.pop_front();
    dispatcher_.finished(*this, 1);
    Reply reply;
    reply.fate = Fate::answered;
    job->reply(std::move(reply));
  }

  bool ended = false, retired = false;
  int kills = 0, reopenings = 0;
  std::string served, taken_back;  // the names of jobs

 private:
  const int number_;
  const std::size_t capacity_;
  Dispatcher &dispatcher_;
  std::deque<JobPtr> jobs_;
};

/// The dispatcher's clock stands still unless a test calls pass, so no result depends on the speed of the machine.
class Dispatching : public ::testing::Test {
 protected:
  static Limits limits() {
    Limits limits;
    limits.queue_length = 3;
    limits.queue = 50ms;
    limits.service = 100ms;
    return limits;
  }

  std::shared_ptr<TestWorker> add(int generation = 1, std::size_t capacity = 1) {
    auto worker = std::make_shared<TestWorker>(++number_, dispatcher_, capacity);
    dispatcher_.add(worker, generation);
    return worker;
  }

  /// submit submits a job and runs the handlers that are ready then.
  void submit(const std::string &name, bool prompt = true) {
    submit_only(name, prompt);
    context_.restart();
    context_.poll();
  }

  /// submit_only submits a job while other handlers are ready.
  void submit_only(const std::string &name, bool prompt = true) {
    auto job = std::make_unique<Job>();
    job->request.body = name;
    job->prompt = prompt;
    job->wanted = [this, name] { return gone_.find(name) == std::string::npos; };
    job->reply = [this, name](const Reply &reply) {
      if (name == no_memory_for_) throw std::bad_alloc();
      fates_ += name + std::to_string(static_cast<int>(reply.fate)) + " ";
    };
    dispatcher_.submit(std::move(job), executor_);
  }

  static std::string fate(const std::string &name, Fate fate) {
    return name + std::to_string(static_cast<int>(fate)) + " ";
  }

  static io::Clock::time_point now() { return present; }
  /// pass lets a time pass for the dispatcher.
  static void pass(Duration time) { present += time; }

  /// run_until runs handlers until `condition` returns true. Returns false if it does not within a minute.
  template <typename Condition>
  bool run_until(Condition condition) {
    context_.restart();
    for (const auto end = io::Clock::now() + 1min; !condition(); context_.run_one_for(1s))
      if (io::Clock::now() > end) return false;
    return true;
  }

  const Limits limits_ = limits();
  boost::asio::io_context context_;
  const io::Executor executor_{context_.get_executor()};
  static inline io::Clock::time_point present = io::Clock::now();
  Dispatcher dispatcher_{limits_, executor_, now};
  int number_ = 0;
  std::string no_memory_for_;  // replying to this job fails
  std::string gone_, fates_;
};

TEST_F(Dispatching, AFreeWorkerGetsAJobAtOnceAndTheNextWhenItHasFinished) {
  const auto worker = add();
  submit("a");
  submit("b");
  EXPECT_EQ(worker->served, "a");
  worker->finish();
  EXPECT_EQ(worker->served, "ab");
  EXPECT_EQ(fates_, fate("a", Fate::answered));
}

TEST_F(Dispatching, JobsWaitForTheFirstWorker) {
  submit("a");
  EXPECT_EQ(add()->served, "a");
}

TEST_F(Dispatching, AnyWorkerTakesTheHeadOfTheQueue) {
  const auto one = add(), two = add();
  for (const char *name : {"a", "b", "c", "d"}) submit(name);
  EXPECT_EQ(dispatcher_.status().queued, 2u);
  two->finish();
  one->finish();
  EXPECT_EQ(one->served.size() + two->served.size(), 4u);
  EXPECT_EQ(two->served.back(), 'c');
  EXPECT_EQ(one->served.back(), 'd');
}

TEST_F(Dispatching, HarvestsLeaveOneWorkerFree) {
  const auto one = add(), two = add();
  submit("H", false);
  submit("I", false);
  EXPECT_EQ(one->served + two->served, "H");
  submit("p");
  EXPECT_EQ(one->served.size() + two->served.size(), 2u);
  (one->served == "H" ? one : two)->finish();
  EXPECT_EQ((one->served.front() == 'H' ? one : two)->served, "HI");
}

TEST_F(Dispatching, TheOnlyWorkerHarvestsToo) {
  const auto worker = add();
  submit("H", false);
  EXPECT_EQ(worker->served, "H");
}

TEST_F(Dispatching, AJobWhoseClientHasGoneWhileItWaitedIsDropped) {
  const auto worker = add();
  for (const char *name : {"a", "b", "c"}) submit(name);
  gone_ = "abc";
  worker->finish();
  EXPECT_EQ(worker->served, "a");
  EXPECT_EQ(fates_, fate("b", Fate::abandoned) + fate("c", Fate::abandoned) + fate("a", Fate::answered));
}

TEST_F(Dispatching, AClientThatNeedNotWaitMayHaveFinishedSending) {
  const auto worker = add();
  gone_ = "a";
  submit("a");
  EXPECT_EQ(worker->served, "a");
}

TEST_F(Dispatching, AFullQueueRefusesUnlessClientsHaveGone) {
  for (const char *name : {"a", "b", "c", "d"}) submit(name);
  EXPECT_EQ(fates_, fate("d", Fate::queue_full));
  gone_ = "b";
  submit("e");
  EXPECT_EQ(fates_, fate("d", Fate::queue_full) + fate("b", Fate::abandoned));
  EXPECT_EQ(dispatcher_.status().queued, 3u);
}

TEST_F(Dispatching, JobsThatWaitTooLongAreRefused) {
  submit("a");
  pass(51ms);
  EXPECT_TRUE(run_until([&] { return !fates_.empty(); }));
  EXPECT_EQ(fates_, fate("a", Fate::overdue));
  EXPECT_EQ(dispatcher_.status().queued, 0u);
}

TEST_F(Dispatching, AWorkerThatTakesTooLongIsKilledOnce) {
  const auto worker = add();
  submit("a");
  pass(101ms);
  EXPECT_TRUE(run_until([&] { return worker->kills > 0; }));
  context_.run_for(50ms);  // several times its tick
  EXPECT_EQ(worker->kills, 1);
  dispatcher_.lost(*worker);
  EXPECT_EQ(dispatcher_.status().busy, 0u);
}

TEST_F(Dispatching, AnIdleDispatcherHasNothingToDo) {
  const auto worker = add();
  submit("a");
  worker->finish();
  context_.restart();
  context_.run_for(1min);
  EXPECT_TRUE(context_.stopped()) << "a timer still runs";
}

TEST_F(Dispatching, AJobThatAnEndedWorkerRefusesGoesToAnother) {
  const auto dead = add();
  dead->ended = true;
  submit("a");
  EXPECT_EQ(dispatcher_.status().queued, 1u);
  EXPECT_EQ(add()->served, "a");
  EXPECT_EQ(fates_, "");
}

TEST_F(Dispatching, PromptJobsGoAheadToWorkersThatServePromptJobs) {
  const auto one = add(1, 2), two = add(1, 2);
  for (const char *name : {"a", "b", "c", "d", "e"}) submit(name);
  EXPECT_EQ(one->served.size() + two->served.size(), 4u);
  EXPECT_EQ(dispatcher_.status().queued, 3u);
  two->finish();
  EXPECT_EQ(two->served.back(), 'e');
}

TEST_F(Dispatching, AFreeWorkerComesBeforeABusyOneThatIsNotBrisk) {
  const auto one = add(1, 4), two = add(1, 4);
  submit("a");
  pass(Dispatcher::brisk_age + 1ms);
  submit("b");
  EXPECT_EQ(one->served.size(), 1u);
  EXPECT_EQ(two->served.size(), 1u);
}

TEST_F(Dispatching, ABriskWorkerComesBeforeAFreeOne) {
  const auto one = add(1, 3), two = add(1, 3);
  for (const char *name : {"a", "b", "c"}) submit_only(name);
  submit("d");
  EXPECT_EQ(one->served, "abc");
  EXPECT_EQ(two->served, "d");
}

TEST_F(Dispatching, JobsForAFreeWorkerAreGatheredWhileHandlersAreReady) {
  const auto worker = add(1, 4);
  submit_only("a");
  submit_only("b");
  EXPECT_EQ(worker->served, "");
  context_.poll();
  EXPECT_EQ(worker->served, "ab");
}

TEST_F(Dispatching, NoJobIsRefusedBecauseOthersAreGathered) {
  const auto one = add(), two = add();
  for (const char *name : {"a", "b", "c"}) submit_only(name);
  EXPECT_EQ(fates_, "");
  submit_only("d");
  submit_only("e");
  EXPECT_EQ(dispatcher_.status().queued, 3u);
  EXPECT_EQ(fates_, "");
  submit_only("f");
  EXPECT_EQ(fates_, fate("f", Fate::queue_full));
}

TEST_F(Dispatching, AHarvestIsNotGathered) {
  const auto worker = add();
  submit_only("H", false);
  EXPECT_EQ(worker->served, "H");
}

TEST_F(Dispatching, GatheredJobsNeedNotWait) {
  const auto worker = add(1, 4);
  gone_ = "ab";
  submit_only("a");
  submit_only("b");
  context_.poll();
  EXPECT_EQ(worker->served, "ab");
}

TEST_F(Dispatching, NothingGoesAheadToAWorkerThatHarvests) {
  const auto worker = add(1, 4);
  submit("H", false);
  submit("a");
  EXPECT_EQ(worker->served, "H");
  worker->finish();
  EXPECT_EQ(worker->served, "Ha");
}

TEST_F(Dispatching, NothingGoesAheadOfAHarvestThatWaits) {
  const auto worker = add(1, 4);
  submit("a");
  submit("H", false);
  submit("b");
  EXPECT_EQ(worker->served, "a");
  worker->finish();
  worker->finish();
  EXPECT_EQ(worker->served, "abH");
}

TEST_F(Dispatching, JobsBehindOneThatTakesLongAreServedByAnother) {
  const auto slow = add(1, 4);
  submit("a");
  submit("b");
  submit("c");
  EXPECT_EQ(slow->served, "abc");
  const auto other = add(1, 4);
  pass(Dispatcher::ahead_patience + 1ms);
  EXPECT_TRUE(run_until([&] { return !other->served.empty(); }));
  EXPECT_EQ(slow->taken_back, "bc");
  EXPECT_EQ(other->served, "bc");
  submit("d");
  EXPECT_EQ(slow->served, "abc");
}

TEST_F(Dispatching, JobsBehindOneThatTakesLongWaitNoLongerThanInTheQueue) {
  const auto slow = add(1, 4);
  submit("a");
  submit("b");
  pass(51ms);
  EXPECT_TRUE(run_until([&] { return !fates_.empty(); }));
  EXPECT_EQ(fates_, fate("b", Fate::overdue));
}

TEST_F(Dispatching, JobsBecomeOverdueThoughATimerOnceGotNoMemory) {
  // Regression: after that, no job was overdue and no worker late any more.
  {
    const support::RefusedHandler wait;
    EXPECT_THROW(submit_only("a"), std::bad_alloc);
    EXPECT_TRUE(wait.done());
  }
  submit("b");
  pass(51ms);
  EXPECT_TRUE(run_until([&] { return !fates_.empty(); }));
  EXPECT_EQ(fates_, fate("a", Fate::overdue) + fate("b", Fate::overdue));
}

TEST_F(Dispatching, JobsThatWentAheadCountAsQueued) {
  const auto worker = add(1, 3);
  for (const char *name : {"a", "b", "c", "d"}) submit(name);
  EXPECT_EQ(dispatcher_.status().queued, 3u);
  submit("e");
  EXPECT_EQ(fates_, fate("e", Fate::queue_full));
}

TEST_F(Dispatching, WhatALostWorkerHadNotBegunIsServedByAnother) {
  const auto worker = add(1, 3);
  for (const char *name : {"a", "b", "c"}) submit(name);
  dispatcher_.lost(*worker, worker->take_back());
  EXPECT_EQ(add(1, 3)->served, "bc");
}

TEST_F(Dispatching, FormerGenerationsEndAfterTheirJobs) {
  const auto idle = add(1), busy = add(1);
  submit("a");
  TestWorker &serving = busy->served.empty() ? *idle : *busy, &other = busy->served.empty() ? *busy : *idle;
  const auto successor = add(2);
  dispatcher_.retire_before(2);
  EXPECT_TRUE(other.retired);
  EXPECT_FALSE(serving.retired);
  submit("b");
  EXPECT_EQ(successor->served, "b");
  serving.finish();
  EXPECT_TRUE(serving.retired);
  EXPECT_EQ(fates_, fate("a", Fate::answered));
}

TEST_F(Dispatching, StoppingRefusesWhatWaitsAndEndsTheWorkers) {
  const auto worker = add();
  submit("a");
  submit("b");
  dispatcher_.stop();
  submit("c");
  EXPECT_TRUE(worker->retired);
  EXPECT_EQ(fates_, fate("b", Fate::stopping) + fate("c", Fate::stopping));
  EXPECT_TRUE(add()->retired);
}

TEST_F(Dispatching, EveryWorkerReopensItsLogs) {
  const auto one = add(), two = add();
  submit("a");
  dispatcher_.reopen_logs();
  EXPECT_EQ(one->reopenings + two->reopenings, 2);
}

TEST_F(Dispatching, ItsStatusCountsWorkersAndJobs) {
  const auto one = add(), two = add();
  submit("a");
  const Dispatcher::Status status = dispatcher_.status();
  EXPECT_EQ(status.free, 1u);
  EXPECT_EQ(status.busy, 1u);
  EXPECT_EQ(status.responsive, 2u);
  EXPECT_EQ(status.queued, 0u);
}

TEST_F(Dispatching, AReplyWithoutMemoryCostsNoOtherReplyAndNoWorker) {
  // Regression: the exception kept the replies and orders that were to follow from being carried out.
  const auto worker = add();
  submit("busy");
  no_memory_for_ = "a";
  for (const char *name : {"a", "b"}) submit(name);
  EXPECT_THROW(dispatcher_.stop(), std::bad_alloc);
  EXPECT_EQ(fates_, fate("b", Fate::stopping));
  EXPECT_TRUE(worker->retired);
}

TEST_F(Dispatching, WithoutMemoryToRetireThemTheWorkersStay) {
  // Regression: the list of workers was left with one that had gone.
  const auto first = add(1), second = add(1);
  {
    const support::RefusedNew list(2 * sizeof(std::shared_ptr<Worker>), 2 * sizeof(std::shared_ptr<Worker>));
    EXPECT_THROW(dispatcher_.retire_before(2), std::bad_alloc);
    EXPECT_TRUE(list.done());
  }
  EXPECT_FALSE(first->retired || second->retired);
  EXPECT_EQ(dispatcher_.status().retired, 2u);
  dispatcher_.retire_before(2);
  EXPECT_TRUE(first->retired && second->retired);
}

}  // namespace
