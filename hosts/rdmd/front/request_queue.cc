// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_queue.h"

#include <algorithm>
#include <utility>

namespace rdm::rdmd {

RoundRobin::~RoundRobin() {
  while (pop()) continue;
}

/// line_of returns the line of a client, which is empty if it is new.
RoundRobin::Jobs &RoundRobin::line_of(const ClientKey &client) {
  const auto found = lines_.find(client);
  if (found != lines_.end()) return found->second->jobs;
  if (spare_line_.empty()) spare_line_.emplace_back();
  const auto line = spare_line_.begin();
  line->client = client;
  if (spare_entry_) {
    spare_entry_.key() = client;
    spare_entry_.mapped() = line;
    lines_.insert(std::move(spare_entry_));
  } else {
    lines_.emplace(client, line);
  }
  turns_.splice(turns_.end(), spare_line_);
  return line->jobs;
}

JobPtr RoundRobin::pop() {
  if (turns_.empty()) return nullptr;
  const auto line = turns_.begin();
  turns_.splice(turns_.end(), turns_, line);
  return take(line, line->jobs.front());
}

JobPtr RoundRobin::remove(Job &job) { return take(lines_.at(job.client), job); }

JobPtr RoundRobin::take(Turns::iterator line, Job &job) {
  line->jobs.erase(line->jobs.iterator_to(job));
  if (line->jobs.empty()) {
    spare_entry_ = lines_.extract(line->client);
    spare_line_.clear();
    spare_line_.splice(spare_line_.end(), turns_, line);
  }
  return JobPtr(&job);
}

JobPtr RequestQueue::push(JobPtr job, std::size_t ahead) {
  if (size() + ahead >= limit_) return job;
  line_of(*job).push(*job);
  arrivals_.push_back(*job.release());
  return nullptr;
}

void RequestQueue::put_back(JobPtr job) {
  const auto later = std::find_if(arrivals_.begin(), arrivals_.end(),
                                  [&job](const Job &other) { return other.queued_at > job->queued_at; });
  line_of(*job).push_first(*job);
  arrivals_.insert(later, *job.release());
}

JobPtr RequestQueue::pop(bool harvests) {
  const bool harvest_waits = harvests && !harvests_.empty();
  const bool harvest_is_next = harvest_waits && (prompt_.empty() || overtaken_ >= overtaking_limit);
  overtaken_ = harvest_waits && !harvest_is_next ? overtaken_ + 1 : 0;
  if (harvest_is_next) return take(harvests_);
  return take(prompt_);
}

JobPtr RequestQueue::take(RoundRobin &jobs) {
  JobPtr job = jobs.pop();
  if (job) arrivals_.erase(arrivals_.iterator_to(*job));
  return job;
}

JobPtr RequestQueue::remove(Job &job) {
  arrivals_.erase(arrivals_.iterator_to(job));
  return line_of(job).remove(job);
}

std::vector<JobPtr> RequestQueue::take_older(io::Clock::time_point time) {
  std::vector<JobPtr> taken;
  while (!arrivals_.empty() && arrivals_.front().queued_at < time) taken.push_back(remove(arrivals_.front()));
  return taken;
}

std::vector<JobPtr> RequestQueue::take_unwanted() {
  std::vector<JobPtr> taken;
  for (auto next = arrivals_.begin(); next != arrivals_.end();) {
    Job &job = *next++;
    if (!job.wanted()) taken.push_back(remove(job));
  }
  return taken;
}

std::vector<JobPtr> RequestQueue::take_all() { return take_older(io::Clock::time_point::max()); }

}  // namespace rdm::rdmd
