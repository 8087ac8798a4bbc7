// SPDX-License-Identifier: MIT
/// The thread that calls the plug-in, with a test in the place of the plug-in.

#include "hosts/rdmd/front/local_worker.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <gtest/gtest.h>

#include "support/refused_new.h"

using namespace rdm;
using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

/// The body of a request names it. The plug-in answers at once, but waits in `hold` until the test releases it. The
/// dispatcher's clock stands still unless a test calls pass: on a slow machine it would take jobs back.
class LocalWorkers : public ::testing::Test {
 protected:
  ~LocalWorkers() override { release(); }

  void release() {
    if (!std::exchange(released_, true)) hold_.set_value();
  }

  /// submit submits a job and runs the handlers that are ready then.
  void submit(const std::string &name) {
    auto job = std::make_unique<Job>();
    job->request.body = name;
    job->keeper = std::make_shared<int>();
    keepers_.push_back(job->keeper);
    job->wanted = [] { return true; };
    job->reply = [this, name](const Reply &reply) {
      for (const hosts::Piece &piece : reply.answer.pieces) bodies_ += piece.bytes;
      if (reply.answer.outcome == hosts::Outcome::broken) replies_ += "broken ";
      replies_ += name + std::to_string(static_cast<int>(reply.fate)) + " ";
      repliers_.push_back(std::this_thread::get_id());
    };
    dispatcher_.submit(std::move(job), executor_);
    context_.poll();
  }

  /// await runs handlers until there are that many replies. Returns false if they do not come within a minute.
  bool await(std::size_t count) {
    for (const auto end = io::Clock::now() + 1min; repliers_.size() < count; context_.run_one_for(10ms))
      if (io::Clock::now() > end) return false;
    return true;
  }

  hosts::ServiceAnswer answer(const hosts::ServiceRequest &request) {
    called_ += request.body;
    if (request.body.starts_with("say ")) return saying(request.body.substr(4));
    threads_.push_back(std::this_thread::get_id());
    if (request.body == "throws") throw std::bad_alloc();
    if (request.body == "hold") {
      held_.set_value();
      released_future_.wait();
    }
    return {};
  }

  static hosts::ServiceAnswer saying(const std::string &text) {
    hosts::ServiceAnswer answer;
    answer.outcome = hosts::Outcome::answered;
    answer.pieces.push_back({text, nullptr, 0, static_cast<std::int64_t>(text.size())});
    return answer;
  }

  void hold() {
    submit("hold");
    held_.get_future().wait();
  }

  static io::Clock::time_point now() { return present; }

  static void pass(Duration time) { present = present.load() + time; }

  /// warm_up lets the worker take the memory in which it keeps answers.
  void warm_up() {
    for (std::size_t done = 1; done <= 3; ++done) {
      submit("w");
      ASSERT_TRUE(await(done));
    }
  }

  bool is_dropped(std::size_t job) const { return keepers_.at(job).expired(); }

  static inline std::atomic<io::Clock::time_point> present{io::Clock::now()};
  const Limits limits_{};
  boost::asio::io_context context_;
  const io::Executor executor_{context_.get_executor()};
  // The context must not stop while the thread of the plug-in is about to give it a handler.
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{context_.get_executor()};
  Dispatcher dispatcher_{limits_, executor_, now};
  std::string called_, replies_, bodies_;
  std::vector<std::thread::id> threads_, repliers_;
  std::vector<std::weak_ptr<void>> keepers_;
  std::promise<void> held_, hold_;
  const std::shared_future<void> released_future_ = hold_.get_future().share();
  bool released_ = false;
  const std::shared_ptr<LocalWorker> worker_ = std::make_shared<LocalWorker>(
      [this](const hosts::ServiceRequest &request) { return answer(request); }, executor_, dispatcher_);

  void SetUp() override { dispatcher_.add(worker_, 0); }
};

const std::string answered = std::to_string(static_cast<int>(Fate::answered)) + " ";

TEST_F(LocalWorkers, CallsThePlugInOnOneThreadOfItsOwnInTheOrderOfTheRequests) {
  std::string all;
  for (char name = 'a'; name <= 'z'; ++name) {
    submit(std::string(1, name));
    all += name;
  }
  ASSERT_TRUE(await(26));
  EXPECT_EQ(called_, all);
  EXPECT_EQ(threads_, std::vector<std::thread::id>(26, threads_[0]));
  EXPECT_NE(threads_[0], std::this_thread::get_id());
}

TEST_F(LocalWorkers, TheThreadsOfTheStrandReply) {
  submit("a");
  submit("b");
  ASSERT_TRUE(await(2));
  EXPECT_EQ(replies_, "a" + answered + "b" + answered);
  EXPECT_EQ(repliers_, std::vector<std::thread::id>(2, std::this_thread::get_id()));
}

TEST_F(LocalWorkers, ShortAndLongAnswersAreWhole) {
  const std::string shorter = "short", longer(100000, 'x');
  for (const std::string &text : {shorter, longer, shorter}) submit("say " + text);
  ASSERT_TRUE(await(3));
  EXPECT_EQ(bodies_, shorter + longer + shorter);
}

TEST_F(LocalWorkers, HoldsNoMoreThanItsCapacityOfPromptJobs) {
  hold();
  for (std::size_t i = 0; i < worker_->capacity(); ++i) submit("a");
  EXPECT_EQ(worker_->take_back().size(), worker_->capacity() - 1);
  EXPECT_EQ(dispatcher_.status().queued, worker_->capacity());
  release();
  EXPECT_TRUE(await(2));
}

TEST_F(LocalWorkers, IsFreeOnceItHasReplied) {
  submit("a");
  submit("b");
  ASSERT_TRUE(await(2));
  EXPECT_EQ(dispatcher_.status().free, 1U);
}

TEST_F(LocalWorkers, WithoutMemoryToKeepAnAnswerItRepliesAtOnce) {
  hold();
  const support::RefusedNew answers(5 * sizeof(void *), 1000);
  release();
  while (!answers.done()) std::this_thread::yield();
  EXPECT_TRUE(worker_->stop(60s));
  EXPECT_EQ(replies_, "hold" + answered);
  EXPECT_EQ(dispatcher_.status().free, 1U);
}

TEST_F(LocalWorkers, GivesBackWhatItHasNotBegun) {
  hold();
  submit("a");
  submit("b");
  const std::vector<JobPtr> jobs = worker_->take_back();
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0]->request.body + jobs[1]->request.body, "ab");
  release();
  ASSERT_TRUE(await(1));
  EXPECT_EQ(called_, "hold");
}

TEST_F(LocalWorkers, StoppingWaitsForTheCallAndDropsTheJobsBehindIt) {
  hold();
  submit("a");
  std::thread releaser([this] {
    // It takes jobs until it stops.
    while (!worker_->serve(std::make_unique<Job>())) std::this_thread::yield();
    release();
  });
  EXPECT_TRUE(worker_->stop(60s));
  releaser.join();
  EXPECT_TRUE(is_dropped(1));
  EXPECT_EQ(called_, "hold");
}

TEST_F(LocalWorkers, StoppingSaysWhenACallDoesNotReturn) {
  hold();
  EXPECT_FALSE(worker_->stop(20ms));
  release();
  EXPECT_TRUE(worker_->stop(60s));
}

TEST_F(LocalWorkers, TakesNoJobOnceItIsStopped) {
  EXPECT_TRUE(worker_->stop(60s));
  const auto job = worker_->serve(std::make_unique<Job>());
  EXPECT_NE(job, nullptr);
}

TEST_F(LocalWorkers, ACallThatThrowsCostsItsOwnRequestAlone) {
  // Regression: bad_alloc in one call ended the server with all its connections.
  submit("throws");
  submit("a");
  ASSERT_TRUE(await(2));
  EXPECT_EQ(replies_, "broken throws" + answered + "a" + answered);
}

TEST_F(LocalWorkers, ADispatcherWithoutMemoryForTheNextJobsKeepsThem) {
  // Regression: bad_alloc in the dispatcher ended the server. Its list of jobs to start takes memory beyond
  // most_gathered.
  warm_up();
  hold();
  pass(Dispatcher::ahead_patience + 1ms);  // or the worker would have the jobs already
  const std::string names = "abcdefghijklmnopqr";
  for (const char name : names) submit(std::string(1, name));
  // Of a worker, which is shared, and a job. Nothing else takes a block of this size.
  constexpr std::size_t list_size = 2 * Dispatcher::most_gathered * (sizeof(std::shared_ptr<Worker>) + sizeof(JobPtr));
  const support::RefusedNew list(list_size, list_size);
  release();
  ASSERT_TRUE(await(4 + names.size()));
  EXPECT_TRUE(list.done());
  EXPECT_EQ(called_, "wwwhold" + names);
}

}  // namespace
