// SPDX-License-Identifier: MIT
/// A request on its way through the queue to a worker, and what becomes of it.
#ifndef HOSTS_RDMD_FRONT_JOB_H
#define HOSTS_RDMD_FRONT_JOB_H

#include <functional>
#include <memory>
#include <string>

#include <boost/intrusive/list.hpp>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

/// Fate is what became of a request.
enum class Fate {
  answered,    // the plug-in was called: the answer says what it did
  queue_full,  // the queue was full
  overdue,     // it waited longer than --queue-time
  abandoned,   // the client closed the connection before its turn
  crashed,     // the worker ended while it had the request
  timed_out,   // the worker took longer than --service-timeout and was killed
  stopping     // the server is stopping
};

/// Reply is the result of a job.
struct Reply {
  Fate fate = Fate::stopping;
  hosts::ServiceAnswer answer;  // if `answered`
  io::Clock::duration queued{}, served{};
  int worker = 0;  // the number of the worker, from 1; 0: this process, or none
};

/// Job is a request that waits for a worker or is with one. Exactly one procedure calls `reply`, unless the server ends
/// before.
struct Job {
  hosts::ServiceRequest request;
  ClientKey client;    // requests of different clients take turns
  bool prompt = true;  // cheap to serve: not a harvest of more than a few descriptions

  /// keeper keeps alive what `wanted` and `reply` use. A reply may take it.
  std::shared_ptr<void> keeper;
  /// wanted returns false if the client has gone. It is called from any thread and must not block.
  std::function<bool()> wanted;
  /// reply takes the result. It is called from any thread, once.
  std::function<void(Reply)> reply;

  io::Clock::time_point queued_at{}, begun_at{};
  boost::intrusive::list_member_hook<> client_hook, arrival_hook;  // of the queue
};

using JobPtr = std::unique_ptr<Job>;

/// describe returns what the error log says of a request, such as "GET /rdm/status-request" (client 192.0.2.1,
/// request 0123456789abcdef).
std::string describe(const hosts::ServiceRequest &request);

/// is_prompt returns true if a request is cheap to serve, by its path and by the type and the limit that its query
/// names, or the type that its body names. The answer is a guess, used for the order of service alone.
bool is_prompt(const hosts::ServiceRequest &request);

}  // namespace rdm::rdmd

#endif
