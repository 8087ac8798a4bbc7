// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/service_thread.h"

#include <exception>
#include <utility>

namespace rdm::rdmd {
namespace {

void do_safely(const std::function<void()> &job) {
  try {
    job();
  } catch (const std::exception &) {
    // The next jobs belong to other clients.
  }
}

}  // namespace

ServiceThread::ServiceThread() : thread_([this] { run(); }) {}

ServiceThread::~ServiceThread() {
  if (!thread_.joinable()) return;
  stop(std::chrono::milliseconds(0));
  thread_.join();
}

void ServiceThread::post(std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) return;
    jobs_.push_back(std::move(job));
  }
  // Not under the lock, for which the woken thread would have to wait.
  changed_.notify_all();
}

bool ServiceThread::stop(std::chrono::milliseconds timeout) {
  std::deque<std::function<void()>> dropped;
  std::unique_lock lock(mutex_);
  stopping_ = true;
  dropped.swap(jobs_);
  changed_.notify_all();
  return changed_.wait_for(lock, timeout, [this] { return ended_; });
}

void ServiceThread::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    if (stopping_) break;
    {
      const std::function<void()> job = std::move(jobs_.front());
      jobs_.pop_front();
      lock.unlock();
      do_safely(job);
    }
    lock.lock();
  }
  ended_ = true;
  changed_.notify_all();
}

}  // namespace rdm::rdmd
