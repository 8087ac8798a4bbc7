// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/dispatcher.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace rdm::rdmd {
namespace {

/// tick_for returns how often the times of jobs are checked: a tenth of the shorter limit.
Duration tick_for(const Limits &limits) {
  constexpr Duration shortest{10}, longest{1000};
  return std::clamp(std::min(limits.queue, limits.service) / 10, shortest, longest);
}

Reply reply_of(Fate fate, const Job &job) {
  Reply reply;
  reply.fate = fate;
  reply.queued = io::Clock::now() - job.queued_at;
  return reply;
}

}  // namespace

Dispatcher::Dispatcher(const Limits &limits, const io::Executor &strand)
    : limits_(limits), tick_time_(tick_for(limits)), queue_(limits.queue_length), timer_(strand) {}

/* ---- Changes, and what follows from them ---- */

template <typename Change>
void Dispatcher::change(Change change) {
  Actions actions;
  {
    const std::lock_guard lock(mutex_);
    change(actions);
    assign(actions);
    schedule_tick();
  }
  carry_out(std::move(actions));
}

void Dispatcher::carry_out(Actions actions) {
  for (Actions::Start &start : actions.starts) begin(*start.worker, std::move(start.job));
  for (Actions::End &end : actions.ends) end.job->reply(reply_of(end.fate, *end.job));
  for (const auto &worker : actions.late) worker->kill();
  for (const auto &worker : actions.retired) worker->retire();
}

/// begin passes a job to a worker. If the worker has ended before it could take the job, another one serves it.
void Dispatcher::begin(Worker &worker, JobPtr job) {
  JobPtr refused = worker.serve(std::move(job));
  if (!refused) return;
  lost(worker);
  change([&](Actions &actions) { enqueue(std::move(refused), actions); });
}

/* ---- Jobs ---- */

void Dispatcher::submit(JobPtr job) {
  job->queued_at = io::Clock::now();
  // The state of a client that does not have to wait is not looked at: it may have finished sending.
  const Job *const fresh = job.get();
  change([&](Actions &actions) {
    enqueue(std::move(job), actions);
    assign(actions, fresh);
  });
}

/// enqueue makes room in a full queue by dropping the jobs whose clients have gone.
void Dispatcher::enqueue(JobPtr job, Actions &actions) {
  if (stopping_) return actions.end(std::move(job), Fate::stopping);
  JobPtr refused = queue_.push(std::move(job));
  if (!refused) return;
  for (JobPtr &unwanted : queue_.take_unwanted()) actions.end(std::move(unwanted), Fate::abandoned);
  refused = queue_.push(std::move(refused));
  if (refused) actions.end(std::move(refused), Fate::queue_full);
}

/// assign gives jobs to free workers, and drops those whose clients have gone while they waited.
void Dispatcher::assign(Actions &actions, const Job *fresh) {
  while (Entry *const free = free_worker()) {
    JobPtr job = queue_.pop(may_harvest());
    if (!job) return;
    if (job.get() != fresh && !job->wanted()) {
      actions.end(std::move(job), Fate::abandoned);
      continue;
    }
    free->busy = true;
    free->harvests = !job->prompt;
    free->begun = job->begun_at = io::Clock::now();
    actions.starts.push_back({free->worker, std::move(job)});
  }
}

/// free_worker returns the free worker that was used last, whose memory is most likely in the processor's caches.
Dispatcher::Entry *Dispatcher::free_worker() {
  Entry *best = nullptr;
  for (Entry &entry : workers_)
    if (!entry.busy && !entry.retired && (best == nullptr || entry.begun > best->begun)) best = &entry;
  return best;
}

bool Dispatcher::may_harvest() const {
  const auto harvesting = std::count_if(workers_.begin(), workers_.end(), [](const Entry &entry) {
    return !entry.retired && entry.busy && entry.harvests;
  });
  const auto serving =
      std::count_if(workers_.begin(), workers_.end(), [](const Entry &entry) { return !entry.retired; });
  return harvesting < std::max<std::ptrdiff_t>(serving - 1, 1);
}

/* ---- Workers ---- */

void Dispatcher::add(std::shared_ptr<Worker> worker, int generation) {
  change([&](Actions &actions) {
    if (stopping_) return actions.retired.push_back(std::move(worker));
    workers_.push_back({std::move(worker), generation});
  });
}

void Dispatcher::retire_before(int generation) {
  change([&](Actions &actions) {
    for (Entry &entry : workers_) entry.retired = entry.retired || entry.generation < generation;
    end_retired(actions);
  });
}

/// end_retired ends the workers that are retired and free.
void Dispatcher::end_retired(Actions &actions) {
  std::erase_if(workers_, [&](Entry &entry) {
    if (!entry.retired || entry.busy) return false;
    actions.retired.push_back(std::move(entry.worker));
    return true;
  });
}

void Dispatcher::finished(const Worker &worker) {
  change([&](Actions &actions) {
    for (Entry &entry : workers_)
      if (entry.worker.get() == &worker) entry.busy = entry.harvests = false;
    end_retired(actions);
  });
}

void Dispatcher::lost(const Worker &worker) {
  change(
      [&](Actions &) { std::erase_if(workers_, [&](const Entry &entry) { return entry.worker.get() == &worker; }); });
}

void Dispatcher::reopen_logs() {
  std::vector<std::shared_ptr<Worker>> workers;
  {
    const std::lock_guard lock(mutex_);
    for (const Entry &entry : workers_) workers.push_back(entry.worker);
  }
  for (const auto &worker : workers) worker->reopen_logs();
}

void Dispatcher::stop() {
  change([&](Actions &actions) {
    stopping_ = true;
    timer_.cancel();
    for (JobPtr &job : queue_.take_all()) actions.end(std::move(job), Fate::stopping);
    for (Entry &entry : workers_) actions.retired.push_back(std::move(entry.worker));
    workers_.clear();
  });
}

Dispatcher::Status Dispatcher::status() const {
  const std::lock_guard lock(mutex_);
  Status status;
  const auto now = io::Clock::now();
  for (const Entry &entry : workers_) {
    ++(entry.retired ? status.retired : entry.busy ? status.busy : status.free);
    status.responsive += !entry.retired && (!entry.busy || now - entry.begun < busy_limit) ? 1 : 0;
  }
  status.queued = queue_.size();
  return status;
}

/* ---- Times ---- */

/// schedule_tick checks the times of jobs while there are any.
void Dispatcher::schedule_tick() {
  const bool needed =
      !queue_.empty() || std::any_of(workers_.begin(), workers_.end(), [](const Entry &entry) { return entry.busy; });
  if (ticking_ || stopping_ || !needed) return;
  ticking_ = true;
  timer_.expires_after(tick_time_);
  timer_.async_wait([this](const boost::system::error_code &error) {
    if (!error) tick();
  });
}

void Dispatcher::tick() {
  change([&](Actions &actions) {
    ticking_ = false;
    const auto now = io::Clock::now();
    for (JobPtr &job : queue_.take_older(now - limits_.queue)) actions.end(std::move(job), Fate::overdue);
    for (Entry &entry : workers_) {
      if (!entry.busy || entry.killed || now - entry.begun <= limits_.service) continue;
      entry.killed = true;
      actions.late.push_back(entry.worker);
    }
  });
}

}  // namespace rdm::rdmd
