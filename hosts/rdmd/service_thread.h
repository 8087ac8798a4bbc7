// SPDX-License-Identifier: MIT
/// The one thread that calls the plug-in, so that one call at a time runs and none holds an I/O thread.
#ifndef HOSTS_RDMD_SERVICE_THREAD_H
#define HOSTS_RDMD_SERVICE_THREAD_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace rdm::rdmd {

class ServiceThread {
 public:
  ServiceThread();
  ServiceThread(const ServiceThread &) = delete;
  ServiceThread &operator=(const ServiceThread &) = delete;
  /// Waits for the job that runs; jobs that have not begun are dropped.
  ~ServiceThread();

  /// post has `job` run after those posted before it. One that throws, as where memory fails, ends; whatever it alone
  /// held, like a connection, goes with it.
  void post(std::function<void()> job);

  /// stop drops the jobs that have not begun and waits up to `timeout` for the one that runs. False when it still
  /// runs.
  bool stop(std::chrono::milliseconds timeout);

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace rdm::rdmd

#endif
