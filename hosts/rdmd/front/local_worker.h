// SPDX-License-Identifier: MIT
/// The worker of a server without worker processes: the one thread of this process that calls the plug-in. Calls never
/// overlap, and none blocks an I/O thread.
#ifndef HOSTS_RDMD_FRONT_LOCAL_WORKER_H
#define HOSTS_RDMD_FRONT_LOCAL_WORKER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/front/dispatcher.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/worker.h"

namespace rdm::rdmd {

class LocalWorker : public Worker {
 public:
  /// Call calls the plug-in. If it throws, the answer is broken.
  using Call = std::function<hosts::ServiceAnswer(hosts::ServiceRequest &&)>;

  /// The I/O threads reply to jobs, on `strand`: to all that were answered meanwhile at once. `dispatcher` outlives the
  /// worker; it is told of harvests by the worker's thread and of prompt jobs with the replies, because two threads
  /// that take its lock for each request would wait for one another.
  LocalWorker(Call call, io::Executor strand, Dispatcher &dispatcher);
  LocalWorker(const LocalWorker &) = delete;
  LocalWorker &operator=(const LocalWorker &) = delete;
  /// Waits for the call under way; jobs that have not begun are dropped.
  ~LocalWorker() override;

  int number() const override { return 0; }
  std::size_t capacity() const override { return 32; }
  JobPtr serve(JobPtr job) override;
  std::vector<JobPtr> take_back() override;
  /// kill does nothing: a thread cannot be ended without its process.
  void kill() override {}
  void reopen_logs() override;
  void retire() override {}

  /// stop drops the jobs that have not begun and waits up to `timeout` for the call under way. Returns false if the
  /// plug-in has not returned.
  bool stop(std::chrono::milliseconds timeout);

 private:
  struct Answered {
    JobPtr job;
    Reply reply;
  };

  void run();
  Answered answer(JobPtr job) const;
  hosts::ServiceAnswer call(hosts::ServiceRequest &&request) const;
  void pass_on(Answered answered);
  bool add(Answered &answered);
  void report();
  void reply(std::span<Answered> all);
  static void reply(Answered &answered);

  const Call call_;
  io::Executor strand_;
  Dispatcher &dispatcher_;

  std::mutex mutex_;  // guards the members below
  std::condition_variable changed_;
  std::deque<JobPtr> waiting_;  // jobs that have not begun, oldest first
  std::vector<Answered> answered_;
  bool stopping_ = false;
  bool ended_ = false;

  std::thread thread_;
};

}  // namespace rdm::rdmd

#endif
