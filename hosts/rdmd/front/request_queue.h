// SPDX-License-Identifier: MIT
/// The requests that wait for a worker, in a fair order.
///
/// Clients take turns, so that one with many connections does not delay the others. Prompt requests (see Job) are
/// served before harvests, but after overtaking_limit of them in a row a waiting harvest is next. A queue is used by
/// one thread at a time. All members take constant time, or time in proportion to the jobs that they return.
#ifndef HOSTS_RDMD_FRONT_REQUEST_QUEUE_H
#define HOSTS_RDMD_FRONT_REQUEST_QUEUE_H

#include <cstddef>
#include <list>
#include <unordered_map>
#include <vector>

#include "hosts/rdmd/front/job.h"

namespace rdm::rdmd {

/// RoundRobin holds the jobs of one kind: a line for each client, and the order in which the clients take turns.
class RoundRobin {
 public:
  RoundRobin() = default;
  RoundRobin(const RoundRobin &) = delete;
  RoundRobin &operator=(const RoundRobin &) = delete;
  ~RoundRobin();

  /// push takes ownership of the job, the last of its client or the first. Throws std::bad_alloc, and then does not.
  void push(Job &job) { line_of(job.client).push_back(job); }
  void push_first(Job &job) { line_of(job.client).push_front(job); }
  /// pop returns the oldest job of the client whose turn it is, or null.
  JobPtr pop();
  /// remove removes a job and returns it.
  JobPtr remove(Job &job);
  bool empty() const { return turns_.empty(); }

 private:
  using Jobs = boost::intrusive::list<
      Job, boost::intrusive::member_hook<Job, boost::intrusive::list_member_hook<>, &Job::client_hook>>;
  struct Line {
    ClientKey client;
    Jobs jobs;
  };
  using Turns = std::list<Line>;

  Jobs &line_of(const ClientKey &client);
  JobPtr take(Turns::iterator line, Job &job);

  Turns turns_;  // the front is next; lines are never empty
  std::unordered_map<ClientKey, Turns::iterator> lines_;
  // The memory of the last line that has become empty, for the next one: a request should allocate little.
  Turns spare_line_;
  decltype(lines_)::node_type spare_entry_;
};

class RequestQueue {
 public:
  static constexpr int overtaking_limit = 8;

  explicit RequestQueue(std::size_t limit) : limit_(limit) {}
  RequestQueue(const RequestQueue &) = delete;
  RequestQueue &operator=(const RequestQueue &) = delete;
  /// Destroys the jobs that are left.
  ~RequestQueue() { take_all(); }

  /// push queues a job. If the queue is full it returns the job instead; `ahead` jobs that workers hold and have not
  /// begun count as well.
  JobPtr push(JobPtr job, std::size_t ahead = 0);
  /// put_back queues a job that was popped before the others of its client, even if the queue is full. It takes time in
  /// proportion to the length of the queue.
  void put_back(JobPtr job);
  /// pop returns the job that is next, or null. If `harvests` is false, harvests keep waiting.
  JobPtr pop(bool harvests);
  /// take_older returns the jobs queued before `time`, oldest first.
  std::vector<JobPtr> take_older(io::Clock::time_point time);
  /// take_unwanted returns the jobs whose clients have gone. It takes time in proportion to the length of the queue.
  std::vector<JobPtr> take_unwanted();
  /// take_all empties the queue.
  std::vector<JobPtr> take_all();

  std::size_t size() const { return arrivals_.size(); }
  bool empty() const { return arrivals_.empty(); }
  bool has_harvests() const { return !harvests_.empty(); }

 private:
  using Arrivals = boost::intrusive::list<
      Job, boost::intrusive::member_hook<Job, boost::intrusive::list_member_hook<>, &Job::arrival_hook>>;

  RoundRobin &line_of(const Job &job) { return job.prompt ? prompt_ : harvests_; }
  JobPtr take(RoundRobin &jobs);
  JobPtr remove(Job &job);

  const std::size_t limit_;
  Arrivals arrivals_;  // in order of arrival; refers to jobs that prompt_ and harvests_ own
  RoundRobin prompt_, harvests_;
  int overtaken_ = 0;  // prompt jobs in a row that overtook a harvest
};

}  // namespace rdm::rdmd

#endif
