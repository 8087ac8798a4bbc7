// SPDX-License-Identifier: MIT
/// Hands the waiting requests to the workers.
///
/// Harvests occupy at most all workers but one, so that a prompt request finds a worker that is free or soon will be.
///
/// Waking a worker costs more than a prompt job, so that
/// - prompt jobs go ahead to workers that are brisk, that is, that have begun a prompt job a moment ago, then to free
///   workers, and then to any that serve prompt jobs;
/// - prompt jobs for a free worker are gathered while handlers of this process are ready, up to most_gathered of them.
/// If a worker does not finish its job within ahead_patience, the jobs that went ahead are taken back, so that no job
/// waits for another one longer than that while a worker is free.
///
/// All members may be called from any thread.
#ifndef HOSTS_RDMD_FRONT_DISPATCHER_H
#define HOSTS_RDMD_FRONT_DISPATCHER_H

#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/request_queue.h"
#include "hosts/rdmd/front/worker.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Dispatcher {
 public:
  /// `limits` outlives the dispatcher. Timers run on `strand`. Without workers, jobs wait until one is added. `now`
  /// tells the time by which jobs are old and workers late.
  using Now = io::Clock::time_point (*)();
  Dispatcher(const Limits &limits, const io::Executor &strand, Now now = io::Clock::now);
  Dispatcher(const Dispatcher &) = delete;
  Dispatcher &operator=(const Dispatcher &) = delete;

  /// submit queues a job or gives it to a worker, at once or after the handlers that are ready now; `executor` is that
  /// of the caller. It sets the job's `queued_at`.
  void submit(JobPtr job, const io::Executor &executor);

  /// add adds a worker that is ready. Workers of a later generation have read the configuration later.
  void add(std::shared_ptr<Worker> worker, int generation);
  /// retire_before ends the workers of generations before `generation`, each when it has finished its jobs.
  void retire_before(int generation);
  /// finished notes that a worker has replied, or is about to, to its `jobs` oldest jobs. It throws nothing: if memory
  /// is short, the next jobs wait for the next event.
  void finished(const Worker &worker, std::size_t jobs);
  /// lost removes a worker that has ended, and queues again the jobs that it held and had not begun, oldest first.
  void lost(const Worker &worker, std::vector<JobPtr> unbegun = {});

  static constexpr Duration ahead_patience{10};
  /// How long ago a brisk worker has begun its job at most.
  static constexpr Duration brisk_age{1};
  static constexpr std::size_t most_gathered = 16;

  void reopen_logs();
  /// stop replies `stopping` to all jobs that wait and to all that come, and retires the workers, whose jobs get no
  /// reply.
  void stop();

  /// Status is what metrics and health say of the workers. `responsive` counts those that are free, or whose request is
  /// younger than busy_limit.
  static constexpr std::chrono::seconds busy_limit{10};
  struct Status {
    std::size_t free = 0, busy = 0, retired = 0, responsive = 0, queued = 0;
  };
  Status status() const;

 private:
  struct Entry {
    std::shared_ptr<Worker> worker;
    int generation;
    std::size_t jobs = 0;  // that it holds; one of them is being served
    bool harvests = false, retired = false, killed = false;
    io::Clock::time_point begun{};  // when it began the job that it serves

    bool busy() const { return jobs > 0; }
    bool holds_ahead() const { return jobs > 1; }
    bool is_late(io::Clock::duration limit, io::Clock::time_point now) const { return busy() && now - begun > limit; }
  };
  /// Actions call other objects, so they are carried out without the lock.
  // NOLINTNEXTLINE(bugprone-exception-escape): moving a small_vector of pointers throws nothing
  struct Actions {
    void end(JobPtr job, Fate fate) { ends.push_back({std::move(job), fate}); }
    /// make_room makes room for one more start.
    void make_room() {
      if (starts.size() == starts.capacity()) starts.reserve(2 * starts.size());
    }

    struct Start {
      std::shared_ptr<Worker> worker;
      JobPtr job;
    };
    struct End {
      JobPtr job;
      Fate fate;
    };
    boost::container::small_vector<Start, most_gathered> starts;
    std::vector<End> ends;
    std::vector<std::shared_ptr<Worker>> retired, late, slow;
  };

  template <typename Decision>
  void decide(Decision decision);
  template <typename Change>
  void change(Change change);
  void carry_out(Actions actions, std::exception_ptr &shortage);
  Reply reply_of(Fate fate, const Job &job) const;
  void begin(Worker &worker, JobPtr job);
  void take_back(Worker &worker);

  // With the lock held:
  void enqueue(JobPtr job, Actions &actions);
  void put_back(std::vector<JobPtr> jobs, Actions &actions);
  bool is_worth_gathering();
  bool gather(const io::Executor &executor);
  void assign(Actions &actions);
  void assign_to_brisk(Actions &actions) { assign_ahead(brisk_age, actions); }
  void assign_to_free(Actions &actions);
  void assign_ahead(io::Clock::duration age, Actions &actions);
  void give(Entry &entry, JobPtr job, Actions &actions);
  JobPtr next_job(bool harvests, Actions &actions);
  Entry *entry_of(const Worker &worker);
  Entry *free_worker();
  Entry *prompt_worker(io::Clock::duration age);
  bool may_harvest() const;
  std::size_t ahead() const;
  void end_retired(Actions &actions);
  void schedule_tick();

  void tick();

  const Limits &limits_;
  const Duration tick_time_;
  const Now now_;

  mutable std::mutex mutex_;  // guards all members below
  RequestQueue queue_;
  std::vector<Entry> workers_;
  bool stopping_ = false;
  bool is_gathering_ = false;          // a handler that assigns the queued jobs is ready
  io::Clock::time_point fresh_since_;  // jobs submitted since then have not had to wait for a worker yet
  std::optional<io::Clock::time_point> next_tick_;
  io::Timer timer_;
};

}  // namespace rdm::rdmd

#endif
