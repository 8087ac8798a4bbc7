// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/dispatcher.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <numeric>
#include <utility>

#include <boost/asio/post.hpp>

namespace rdm::rdmd {
namespace {

/// A job is fresh if it was submitted at this time or later; at this time, none is.
constexpr auto none_fresh = io::Clock::time_point::max();

/// tick_for returns how often the times of jobs are checked: a tenth of the shorter limit.
Duration tick_for(const Limits &limits) {
  constexpr Duration shortest{10}, longest{1000};
  return std::clamp(std::min(limits.queue, limits.service) / 10, shortest, longest);
}

}  // namespace

Dispatcher::Dispatcher(const Limits &limits, const io::Executor &strand, Now now)
    : limits_(limits),
      tick_time_(tick_for(limits)),
      now_(now),
      queue_(limits.queue_length),
      fresh_since_(none_fresh),
      timer_(strand) {}

/* ---- Changes, and what follows from them ---- */

/// decide runs `decision` with the lock held and carries out what it has decided, even if memory then ran short.
template <typename Decision>
void Dispatcher::decide(Decision decision) {
  Actions actions;
  std::exception_ptr shortage;
  {
    const std::lock_guard lock(mutex_);
    try {
      decision(actions);
    } catch (const std::bad_alloc &) {
      shortage = std::current_exception();
    }
  }
  carry_out(std::move(actions), shortage);
  if (shortage) std::rethrow_exception(shortage);
}

template <typename Change>
void Dispatcher::change(Change change) {
  decide([&](Actions &actions) {
    change(actions);
    assign(actions);
    schedule_tick();
  });
}

/// carry_out carries out every action. It sets `shortage` if memory is short for one, such as a reply: that job is
/// dropped, which closes its connection.
void Dispatcher::carry_out(Actions actions, std::exception_ptr &shortage) {
  const auto attempt = [&shortage](auto action) {
    try {
      action();
    } catch (const std::bad_alloc &) {
      shortage = std::current_exception();
    }
  };
  for (Actions::Start &start : actions.starts) begin(*start.worker, std::move(start.job));
  for (Actions::End &end : actions.ends) attempt([&] { end.job->reply(reply_of(end.fate, *end.job)); });
  for (const auto &worker : actions.slow) attempt([&] { take_back(*worker); });
  for (const auto &worker : actions.late) attempt([&] { worker->kill(); });
  for (const auto &worker : actions.retired) attempt([&] { worker->retire(); });
}

Reply Dispatcher::reply_of(Fate fate, const Job &job) const {
  Reply reply;
  reply.fate = fate;
  reply.queued = now_() - job.queued_at;
  return reply;
}

/// begin passes a job to a worker. If the worker has ended before it could take the job, another one serves it. If
/// memory is short, the job is dropped and its connection closed.
void Dispatcher::begin(Worker &worker, JobPtr job) {
  try {
    job = worker.serve(std::move(job));
    if (!job) return;
    std::vector<JobPtr> refused;
    refused.push_back(std::move(job));
    lost(worker, std::move(refused));
  } catch (const std::bad_alloc &) {
    finished(worker, 1);
  }
}

/// take_back queues again what a worker holds and has not begun.
void Dispatcher::take_back(Worker &worker) {
  std::vector<JobPtr> jobs = worker.take_back();
  change([&](Actions &actions) {
    if (Entry *const entry = entry_of(worker)) entry->jobs -= jobs.size();
    put_back(std::move(jobs), actions);
  });
}

/* ---- Jobs ---- */

void Dispatcher::submit(JobPtr job, const io::Executor &executor) {
  job->queued_at = now_();
  decide([&](Actions &actions) {
    fresh_since_ = std::min(fresh_since_, job->queued_at);
    // No job is refused because others are gathered.
    if (is_gathering_ && queue_.size() + ahead() >= limits_.queue_length) assign(actions);
    enqueue(std::move(job), actions);
    assign_to_brisk(actions);
    if (!is_worth_gathering() || !gather(executor)) assign(actions);
    schedule_tick();
  });
}

/// is_worth_gathering returns true if a free worker would have to be woken for a few prompt jobs.
bool Dispatcher::is_worth_gathering() {
  const bool is_few = !queue_.empty() && queue_.size() < most_gathered;
  return is_few && !queue_.has_harvests() && free_worker() != nullptr;
}

/// gather assigns the queued jobs after the handlers that are ready now. Returns false if memory is short.
bool Dispatcher::gather(const io::Executor &executor) {
  if (is_gathering_) return true;
  try {
    boost::asio::post(executor, [this] { change([this](Actions &) { is_gathering_ = false; }); });
    return is_gathering_ = true;
  } catch (const std::bad_alloc &) {
    return false;
  }
}

/// enqueue makes room in a full queue by dropping the jobs whose clients have gone.
void Dispatcher::enqueue(JobPtr job, Actions &actions) {
  if (stopping_) return actions.end(std::move(job), Fate::stopping);
  JobPtr refused = queue_.push(std::move(job), ahead());
  if (!refused) return;
  for (JobPtr &unwanted : queue_.take_unwanted()) actions.end(std::move(unwanted), Fate::abandoned);
  refused = queue_.push(std::move(refused), ahead());
  if (refused) actions.end(std::move(refused), Fate::queue_full);
}

/// put_back queues jobs again, in front of those that came later.
void Dispatcher::put_back(std::vector<JobPtr> jobs, Actions &actions) {
  for (; !jobs.empty(); jobs.pop_back())
    stopping_ ? actions.end(std::move(jobs.back()), Fate::stopping) : queue_.put_back(std::move(jobs.back()));
}

/// assign gives jobs to brisk workers, then to free ones, and then to those that will soon be.
void Dispatcher::assign(Actions &actions) {
  assign_to_brisk(actions);
  assign_to_free(actions);
  assign_ahead(ahead_patience, actions);
  fresh_since_ = none_fresh;
}

void Dispatcher::assign_to_free(Actions &actions) {
  while (Entry *const free = free_worker()) {
    JobPtr job = next_job(may_harvest(), actions);
    if (!job) return;
    free->harvests = !job->prompt;
    free->begun = now_();
    give(*free, std::move(job), actions);
    // It is brisk now.
    assign_to_brisk(actions);
  }
}

/// assign_ahead gives prompt jobs to workers that serve a prompt job, begun within `age`, unless a harvest waits for a
/// free one.
void Dispatcher::assign_ahead(io::Clock::duration age, Actions &actions) {
  if (queue_.has_harvests() && may_harvest()) return;
  while (Entry *const busy = queue_.empty() ? nullptr : prompt_worker(age)) {
    JobPtr job = next_job(false, actions);
    if (!job) return;
    give(*busy, std::move(job), actions);
  }
}

void Dispatcher::give(Entry &entry, JobPtr job, Actions &actions) {
  ++entry.jobs;
  job->begun_at = now_();
  actions.starts.push_back({entry.worker, std::move(job)});
}

/// next_job takes the next job from the queue, and drops those whose clients have gone while they waited. The state of
/// a client that does not have to wait is not looked at: it may have finished sending.
JobPtr Dispatcher::next_job(bool harvests, Actions &actions) {
  // Before a job leaves the queue: if memory is short, it stays there.
  actions.make_room();
  for (;;) {
    JobPtr job = queue_.pop(harvests);
    if (!job || job->queued_at >= fresh_since_ || job->wanted()) return job;
    actions.end(std::move(job), Fate::abandoned);
  }
}

Dispatcher::Entry *Dispatcher::entry_of(const Worker &worker) {
  const auto found = std::find_if(workers_.begin(), workers_.end(),
                                  [&worker](const Entry &entry) { return entry.worker.get() == &worker; });
  return found == workers_.end() ? nullptr : &*found;
}

/// free_worker returns the free worker that was used last, whose memory is most likely in the processor's caches.
Dispatcher::Entry *Dispatcher::free_worker() {
  Entry *best = nullptr;
  for (Entry &entry : workers_)
    if (!entry.busy() && !entry.retired && (best == nullptr || entry.begun > best->begun)) best = &entry;
  return best;
}

/// prompt_worker returns the worker with the fewest jobs of those that serve a prompt job, begun within `age`, and can
/// hold another one.
Dispatcher::Entry *Dispatcher::prompt_worker(io::Clock::duration age) {
  Entry *best = nullptr;
  for (Entry &entry : workers_) {
    const bool can_hold = entry.busy() && entry.jobs < entry.worker->capacity() && !entry.retired;
    if (!can_hold || entry.harvests || entry.is_late(age, now_())) continue;
    if (best == nullptr || entry.jobs < best->jobs) best = &entry;
  }
  return best;
}

/// ahead returns the number of jobs that workers hold and have not begun.
std::size_t Dispatcher::ahead() const {
  return std::accumulate(workers_.begin(), workers_.end(), std::size_t{0}, [](std::size_t sum, const Entry &entry) {
    return sum + std::max<std::size_t>(entry.jobs, 1) - 1;
  });
}

bool Dispatcher::may_harvest() const {
  const auto harvesting = std::count_if(workers_.begin(), workers_.end(), [](const Entry &entry) {
    return !entry.retired && entry.busy() && entry.harvests;
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
  const auto has_ended = [](const Entry &entry) { return entry.retired && !entry.busy(); };
  const auto count = std::count_if(workers_.begin(), workers_.end(), has_ended);
  if (count == 0) return;
  // First: without memory for it, nothing has changed.
  actions.retired.reserve(actions.retired.size() + static_cast<std::size_t>(count));
  std::erase_if(workers_, [&](Entry &entry) {
    if (!has_ended(entry)) return false;
    actions.retired.push_back(std::move(entry.worker));
    return true;
  });
}

void Dispatcher::finished(const Worker &worker, std::size_t jobs) {
  try {
    change([&](Actions &actions) {
      if (Entry *const entry = entry_of(worker)) {
        entry->jobs -= jobs;
        entry->harvests = false;
        entry->begun = now_();
      }
      end_retired(actions);
    });
  } catch (const std::bad_alloc &) {
    // The jobs that wait are given to workers at the next change.
  }
}

void Dispatcher::lost(const Worker &worker, std::vector<JobPtr> unbegun) {
  change([&](Actions &actions) {
    std::erase_if(workers_, [&](const Entry &entry) { return entry.worker.get() == &worker; });
    put_back(std::move(unbegun), actions);
  });
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
    // First: without memory for it, nothing has changed.
    actions.retired.reserve(workers_.size());
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
  for (const Entry &entry : workers_) {
    ++(entry.retired ? status.retired : entry.busy() ? status.busy : status.free);
    status.responsive += !entry.retired && !entry.is_late(busy_limit, now_()) ? 1 : 0;
  }
  status.queued = queue_.size() + ahead();
  return status;
}

/* ---- Times ---- */

/// schedule_tick checks the times of jobs while there are any, and soon while workers hold jobs ahead.
void Dispatcher::schedule_tick() {
  const bool is_busy = std::any_of(workers_.begin(), workers_.end(), [](const Entry &entry) { return entry.busy(); });
  if (stopping_ || (queue_.empty() && !is_busy)) return;
  const Duration time = ahead() > 0 ? ahead_patience : tick_time_;
  const auto wanted = now_() + time;
  if (next_tick_ && *next_tick_ <= wanted) return;
  next_tick_.reset();
  timer_.expires_after(time);
  timer_.async_wait([this](const boost::system::error_code &error) {
    if (!error) tick();
  });
  // Last: without memory for it, a later change begins the wait.
  next_tick_ = wanted;
}

void Dispatcher::tick() {
  change([&](Actions &actions) {
    next_tick_.reset();
    const auto now = now_();
    for (JobPtr &job : queue_.take_older(now - limits_.queue)) actions.end(std::move(job), Fate::overdue);
    for (Entry &entry : workers_) {
      if (entry.holds_ahead() && entry.is_late(ahead_patience, now)) actions.slow.push_back(entry.worker);
      if (entry.killed || !entry.is_late(limits_.service, now)) continue;
      entry.killed = true;
      actions.late.push_back(entry.worker);
    }
  });
}

}  // namespace rdm::rdmd
