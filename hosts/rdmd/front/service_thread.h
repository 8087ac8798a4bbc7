// SPDX-License-Identifier: MIT
/// The one thread that calls the plug-in: calls never overlap, and none blocks an I/O thread.
#ifndef HOSTS_RDMD_FRONT_SERVICE_THREAD_H
#define HOSTS_RDMD_FRONT_SERVICE_THREAD_H

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
  /// Waits for the running job; jobs that have not started are dropped.
  ~ServiceThread();

  /// post queues `job` after those posted before. Exceptions from a job are swallowed; its captures are destroyed.
  void post(std::function<void()> job);

  /// stop drops the jobs that have not started and waits up to `timeout` for the running one. Returns false if that is
  /// still running.
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
