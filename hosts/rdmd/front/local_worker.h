// SPDX-License-Identifier: MIT
/// The worker of a server without worker processes: a thread that calls the plug-in in this process.
#ifndef HOSTS_RDMD_FRONT_LOCAL_WORKER_H
#define HOSTS_RDMD_FRONT_LOCAL_WORKER_H

#include <chrono>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/front/dispatcher.h"
#include "hosts/rdmd/front/service_thread.h"
#include "hosts/rdmd/front/worker.h"

namespace rdm::rdmd {

class LocalWorker : public Worker {
 public:
  /// Compresses answers if `gzip`.
  LocalWorker(hosts::Plugin &plugin, bool gzip, Dispatcher &dispatcher)
      : plugin_(plugin), gzip_(gzip), dispatcher_(dispatcher) {}

  int number() const override { return 0; }
  JobPtr serve(JobPtr job) override;
  /// kill does nothing: a thread cannot be ended without its process.
  void kill() override {}
  void reopen_logs() override;
  void retire() override {}

  /// stop waits up to `timeout` for the running call. Returns false if the plug-in has not returned.
  bool stop(std::chrono::milliseconds timeout) { return thread_.stop(timeout); }

 private:
  void run();
  hosts::ServiceAnswer call(hosts::ServiceRequest request);

  hosts::Plugin &plugin_;
  const bool gzip_;
  Dispatcher &dispatcher_;
  JobPtr job_;
  ServiceThread thread_;
};

}  // namespace rdm::rdmd

#endif
