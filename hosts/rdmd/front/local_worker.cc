// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/local_worker.h"

#include <exception>
#include <utility>

#include "hosts/common/host_table.h"
#include "hosts/rdmd/transform/transform.h"

namespace rdm::rdmd {

JobPtr LocalWorker::serve(JobPtr job) {
  job_ = std::move(job);
  thread_.post([this] { run(); });
  return nullptr;
}

void LocalWorker::run() {
  Reply reply;
  const JobPtr job = std::move(job_);
  reply.fate = Fate::answered;
  reply.worker = number();
  reply.queued = job->begun_at - job->queued_at;
  reply.answer = call(std::move(job->request));
  reply.served = io::Clock::now() - job->begun_at;
  dispatcher_.finished(*this);
  job->reply(std::move(reply));
}

hosts::ServiceAnswer LocalWorker::call(hosts::ServiceRequest request) {
  try {
    return answer_request(plugin_, std::move(request), gzip_);
  } catch (const std::exception &) {
    hosts::ServiceAnswer answer;
    answer.outcome = hosts::Outcome::broken;
    return answer;
  }
}

void LocalWorker::reopen_logs() { hosts::reopen_logs(); }

}  // namespace rdm::rdmd
