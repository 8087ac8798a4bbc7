// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/local_worker.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

#include <boost/asio/post.hpp>

#include "hosts/common/host_table.h"

namespace rdm::rdmd {

LocalWorker::LocalWorker(Call call, io::Executor strand, Dispatcher &dispatcher)
    : call_(std::move(call)), strand_(std::move(strand)), dispatcher_(dispatcher), thread_([this] { run(); }) {}

LocalWorker::~LocalWorker() {
  stop(std::chrono::milliseconds(0));
  thread_.join();
}

/* ---- For the dispatcher ---- */

JobPtr LocalWorker::serve(JobPtr job) {
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) return job;
    waiting_.push_back(std::move(job));
  }
  // Not under the lock, for which the woken thread would have to wait.
  changed_.notify_one();
  return nullptr;
}

std::vector<JobPtr> LocalWorker::take_back() {
  const std::lock_guard lock(mutex_);
  std::vector<JobPtr> jobs(std::move_iterator(waiting_.begin()), std::move_iterator(waiting_.end()));
  waiting_.clear();
  return jobs;
}

void LocalWorker::reopen_logs() { hosts::reopen_logs(); }

bool LocalWorker::stop(std::chrono::milliseconds timeout) {
  std::deque<JobPtr> dropped;  // destroyed without the lock
  std::unique_lock lock(mutex_);
  stopping_ = true;
  dropped.swap(waiting_);
  changed_.notify_all();
  return changed_.wait_for(lock, timeout, [this] { return ended_; });
}

/* ---- The thread ---- */

void LocalWorker::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (stopping_) break;
    JobPtr job = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    Answered answered = answer(std::move(job));
    // Here, not with the reply: the next harvest, which is never taken ahead, would wait for an I/O thread.
    if (!answered.job->prompt) dispatcher_.finished(*this, 1);
    pass_on(std::move(answered));
    lock.lock();
  }
  ended_ = true;
  changed_.notify_all();
}

LocalWorker::Answered LocalWorker::answer(JobPtr job) const {
  Reply reply;
  reply.fate = Fate::answered;
  reply.worker = number();
  job->begun_at = io::Clock::now();
  reply.queued = job->begun_at - job->queued_at;
  reply.answer = call(std::move(job->request));
  reply.served = io::Clock::now() - job->begun_at;
  return {std::move(job), std::move(reply)};
}

hosts::ServiceAnswer LocalWorker::call(hosts::ServiceRequest &&request) const {
  try {
    return call_(std::move(request));
  } catch (const std::exception &) {
    hosts::ServiceAnswer answer;
    answer.outcome = hosts::Outcome::broken;
    return answer;
  }
}

/// pass_on has an I/O thread reply. If memory is short, this thread replies.
void LocalWorker::pass_on(Answered answered) {
  try {
    if (add(answered)) boost::asio::post(strand_, [this] { report(); });
  } catch (const std::bad_alloc &) {
    report();
    if (answered.job) reply({&answered, 1});
  }
}

/// add returns true if no I/O thread has been told of answers yet. If it throws, `answered` is as before.
bool LocalWorker::add(Answered &answered) {
  const std::lock_guard lock(mutex_);
  answered_.push_back(std::move(answered));
  return answered_.size() == 1;
}

/* ---- The replies ---- */

void LocalWorker::report() {
  std::vector<Answered> all;
  {
    const std::lock_guard lock(mutex_);
    all.swap(answered_);
  }
  reply(all);
}

void LocalWorker::reply(std::span<Answered> all) {
  // Before the replies, so that the thread has work meanwhile.
  const auto prompt =
      std::count_if(all.begin(), all.end(), [](const Answered &answered) { return answered.job->prompt; });
  if (prompt > 0) dispatcher_.finished(*this, static_cast<std::size_t>(prompt));
  for (Answered &answered : all) reply(answered);
}

void LocalWorker::reply(Answered &answered) {
  try {
    answered.job->reply(std::move(answered.reply));
  } catch (const std::exception &) {
    // The other answers belong to other clients. This job is dropped, which closes its connection.
  }
  answered.job.reset();
}

}  // namespace rdm::rdmd
