// SPDX-License-Identifier: MIT
/// What the dispatcher knows of a worker.
#ifndef HOSTS_RDMD_FRONT_WORKER_H
#define HOSTS_RDMD_FRONT_WORKER_H

#include <cstddef>
#include <vector>

#include "hosts/rdmd/front/job.h"

namespace rdm::rdmd {

/// Worker serves one job at a time, in the order in which it gets them. After each it calls Dispatcher::finished, and
/// when it can serve no more Dispatcher::lost.
class Worker {
 public:
  virtual ~Worker() = default;
  /// number returns the number by which logs name the worker, from 1; 0 is this process.
  virtual int number() const = 0;
  /// capacity returns how many jobs it holds: the one that it serves, and those that are to follow without a pause.
  virtual std::size_t capacity() const { return 1; }
  /// serve takes a job, which the worker answers. If the worker has ended, it returns the job instead.
  virtual JobPtr serve(JobPtr job) = 0;
  /// take_back returns the jobs that the worker holds and has not begun, oldest first.
  virtual std::vector<JobPtr> take_back() { return {}; }
  /// kill ends a worker that takes too long, if that is possible. The worker replies `timed_out` to its job.
  virtual void kill() = 0;
  /// reopen_logs reopens the plug-in's logs, now or after the current job.
  virtual void reopen_logs() = 0;
  /// retire ends the worker. A job that it has gets no reply.
  virtual void retire() = 0;
};

}  // namespace rdm::rdmd

#endif
