// SPDX-License-Identifier: MIT
#include "hosts/rdmd/master/master.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/check/check.h"
#include "hosts/rdmd/front/front.h"
#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/master/backoff.h"
#include "hosts/rdmd/master/children.h"
#include "hosts/rdmd/master/control.h"
#include "hosts/rdmd/resource_limits.h"
#include "hosts/rdmd/standard_stream.h"
#include "hosts/rdmd/startup.h"
#include "hosts/rdmd/systemd.h"
#include "hosts/rdmd/worker/own_directory.h"
#include "hosts/rdmd/worker/protocol.h"
#include "hosts/rdmd/worker/worker.h"

namespace rdm::rdmd {
namespace {

using Clock = std::chrono::steady_clock;
using Kind = ControlMessage::Kind;

/// How many generations of workers may be alive: those of former configurations end with their last requests.
constexpr std::size_t generation_limit = 4;

/// The front says every second that it is alive. Longer silence means that it hangs.
constexpr std::chrono::seconds silence_limit{10};

/// The generation of workers that have lost their front: they end, and nothing takes their places one by one.
constexpr int no_generation = -1;

/// WorkerProcess is a worker. Its socket is the master's until the worker is ready, and then the front's.
struct WorkerProcess {
  Child child;
  int number;
  int generation;
  std::optional<Clock::time_point> ready{};  // when it became ready
  bool passed = false;                       // the front of this moment has its socket
  std::string own_directory{};
  Clock::time_point end = Clock::time_point::max();  // when it is killed, because its front has ended before it
};

class Master {
 public:
  Master(const Settings &settings, std::vector<ListeningSocket> listeners, Upgrade &upgrade, ErrorLog &errors)
      : settings_(settings),
        upgrade_(upgrade),
        errors_(errors),
        listeners_(std::move(listeners)),
        worker_crashes_(settings.workers) {}

  int run() {
    tls_ = load_tls(settings_, listeners_, [this](const std::string &text) { errors_.warn(text); });
    block_signals();
    log_mistakes(settings_.config, errors_);
    start_generation();
    feed_watchdog();
    while (!ended()) wait();
    if (!workers_.empty()) end_workers();
    return status_;
  }

 private:
  /* ---- Waiting ---- */

  void block_signals();
  void wait();
  void take_signals();
  void obey(int signal);
  int time_left() const;
  void do_what_is_due();
  bool ended() const { return stopping_ && front_.pid == -1 && (workers_.empty() || Clock::now() >= end_); }

  /* ---- Workers ---- */

  void start_generation();
  bool start_worker(int generation);
  void fill_place();
  void fill_place_after(Clock::duration pause);
  void take_readiness(WorkerProcess &worker);
  void worker_ready(WorkerProcess &worker, const Readiness &readiness);
  void generation_ready();
  void retire_others();
  void generation_failed(const std::string &why);
  void pass(WorkerProcess &worker);
  void worker_ended(std::list<WorkerProcess>::iterator found, int wait_status);
  void note_end(int wait_status);
  void replace(const WorkerProcess &worker);
  std::size_t generations() const;
  void kill_generation(int generation);
  void abandon(WorkerProcess &worker) const;
  void kill_late();

  /* ---- The front ---- */

  void start_front();
  bool begin_service();
  void front_works();
  void fail_to_start(const std::string &why);
  void front_ended(int wait_status);
  void kill_front();
  void take_message();
  void tell(const ControlMessage &message, const std::vector<host_fd> &files = {});

  /* ---- The whole ---- */

  void report_ready(const std::string &fault = "");
  void feed_watchdog();
  Duration grace() const;
  void reload();
  void upgrade();
  bool loses_catalogs(const std::string &action);
  bool has_catalogs() const;
  void reload_tls();
  void reopen_logs();
  void hand_over();
  void await_workers();
  void end_workers();
  void stop();
  void begin_to_stop();
  void reap();
  void process_ended(pid_t pid, int wait_status);

  const Settings &settings_;
  Upgrade &upgrade_;
  ErrorLog &errors_;
  const ServiceManager manager_;
  Clock::time_point watchdog_due_ = Clock::time_point::max();
  std::vector<ListeningSocket> listeners_;
  TlsContextPtr tls_;  // for the next front; null: no socket speaks TLS
  HostFileGuard signals_;

  Child front_;
  bool serving_ = false;                          // the server has once been ready
  Clock::time_point front_begun_{};               // when it was started
  std::optional<Clock::time_point> front_alive_;  // when it last said so
  Backoff front_backoff_, worker_backoff_;
  CrashBudget front_crashes_{1}, worker_crashes_;
  std::optional<Clock::time_point> front_due_;

  std::list<WorkerProcess> workers_;
  std::multiset<Clock::time_point> replacements_due_;
  int last_number_ = 0;
  int last_generation_ = 0;
  int generation_ = 0;  // the one that serves
  int starting_ = 0;    // the one that is being started, or 0
  bool reload_waits_ = false;
  bool upgrade_waits_ = false;
  bool serves_catalogs_ = false;  // the configuration of the generation that serves has catalog services

  bool stopping_ = false;
  bool handed_over_ = false;                          // another process is the server now
  Clock::time_point end_ = Clock::time_point::max();  // while it stops: when the front, or else the workers, are killed
  int status_ = EXIT_SUCCESS;
};

/* ---- Waiting ---- */

void Master::block_signals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD}) ::sigaddset(&signals, signal);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  signals_ = HostFileGuard(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_) throw std::system_error(errno, std::generic_category(), "signalfd");
}

void Master::wait() {
  std::vector<pollfd> waiting = {
      {signals_.get(), POLLIN, 0}, {front_.socket.get(), POLLIN, 0}, {upgrade_.descriptor(), POLLIN, 0}};
  std::vector<WorkerProcess *> starting;
  for (WorkerProcess &worker : workers_)
    if (!worker.ready && worker.child.socket) {
      waiting.push_back({worker.child.socket.get(), POLLIN, 0});
      starting.push_back(&worker);
    }
  if (::poll(waiting.data(), waiting.size(), time_left()) < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "poll");
  for (std::size_t i = 0; i < starting.size(); ++i)
    if (waiting[i + 3].revents != 0) take_readiness(*starting[i]);
  if (waiting[1].revents != 0) take_message();
  if (waiting[2].revents != 0 && upgrade_.finished(errors_)) hand_over();
  if (waiting[0].revents != 0) take_signals();
  do_what_is_due();
}

void Master::take_signals() {
  signalfd_siginfo info;
  while (::read(signals_.get(), &info, sizeof info) == sizeof info) obey(static_cast<int>(info.ssi_signo));
}

void Master::obey(int signal) {
  switch (signal) {
    case SIGCHLD:
      return reap();
    case SIGHUP:
      return reload();
    case SIGUSR1:
      reopen_logs();
      return errors_.info("SIGUSR1: logs reopened");
    case SIGUSR2:
      return upgrade();
    default:
      return stop();
  }
}

/// time_left returns the milliseconds until something is due, or -1.
int Master::time_left() const {
  Clock::time_point due = std::min(end_, watchdog_due_);
  if (front_due_) due = std::min(due, *front_due_);
  for (const WorkerProcess &worker : workers_) due = std::min(due, worker.end);
  if (starting_ == 0 && !replacements_due_.empty()) due = std::min(due, *replacements_due_.begin());
  if (due == Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Master::do_what_is_due() {
  const auto now = Clock::now();
  if (watchdog_due_ <= now) feed_watchdog();
  if (front_due_ && *front_due_ <= now) start_front();
  if (front_.pid != -1 && end_ <= now) kill_front();
  kill_late();
  // While a generation starts, the places of the former one wait: if it fails they are filled.
  while (!stopping_ && starting_ == 0 && !replacements_due_.empty() && *replacements_due_.begin() <= now) {
    replacements_due_.erase(replacements_due_.begin());
    fill_place();
  }
}

/* ---- Workers ---- */

void Master::start_generation() {
  const int generation = starting_ = ++last_generation_;
  int missing = settings_.workers;
  while (missing > 0 && start_worker(generation)) --missing;
  // A generation that has failed serves nevertheless if there is no other: see generation_failed.
  if (generation_ == generation)
    for (const auto pause = worker_backoff_.next(); missing > 0; --missing) fill_place_after(pause);
}

/// start_worker returns false, after a message, if the system has no process or descriptor for it. If the generation
/// serves, its place is filled later.
bool Master::start_worker(int generation) {
  try {
    Child child = start_child("rdmd-worker", grace(),
                              [this](HostFileGuard socket) { return run_worker(settings_, std::move(socket)); });
    workers_.push_back({std::move(child), ++last_number_, generation});
    return true;
  } catch (const std::exception &error) {
    errors_.error(std::string("start a worker: ") + error.what());
    generation == starting_ ? generation_failed("a worker could not be started")
                            : fill_place_after(worker_backoff_.next());
    return false;
  }
}

/// fill_place starts a worker of the generation that serves, if one is missing: a generation that has taken over
/// meanwhile has all of its own.
void Master::fill_place() {
  const auto count = std::count_if(workers_.begin(), workers_.end(),
                                   [this](const WorkerProcess &worker) { return worker.generation == generation_; });
  if (count < settings_.workers) start_worker(generation_);
}

/// fill_place_after does so at once or after a pause.
void Master::fill_place_after(Clock::duration pause) {
  if (pause == Clock::duration::zero())
    fill_place();
  else
    replacements_due_.insert(Clock::now() + pause);
}

void Master::take_readiness(WorkerProcess &worker) {
  try {
    const std::optional<Packet> packet = receive_packet(worker.child.socket.get());
    if (packet && !packet->bytes.empty()) return worker_ready(worker, decode_readiness(packet->bytes));
  } catch (const std::exception &error) {
    errors_.error(std::string("start a worker: ") + error.what());
  }
  // The worker has ended; reap() finds it.
  worker.child.socket = HostFileGuard();
}

void Master::worker_ready(WorkerProcess &worker, const Readiness &readiness) {
  if (!readiness.failure.empty()) {
    worker.child.socket = HostFileGuard();
    if (worker.generation == starting_) return generation_failed(readiness.failure);
    if (worker.generation == generation_) errors_.error("a worker could not be replaced: " + readiness.failure);
    return;
  }
  worker.ready = Clock::now();
  worker.own_directory = readiness.own_directory;
  if (!readiness.temporary_directory.empty()) ::setenv("TMPDIR", readiness.temporary_directory.c_str(), 1);
  worker_backoff_.reset();
  // A replacement in a generation that has been retired meanwhile ends again.
  if (worker.generation != starting_ && worker.generation != generation_) worker.child.socket = HostFileGuard();
  if (worker.generation != starting_) return pass(worker);
  const bool all = std::all_of(workers_.begin(), workers_.end(), [this](const WorkerProcess &other) {
    return other.generation != starting_ || other.ready;
  });
  if (all) generation_ready();
}

/// generation_ready makes the started generation the serving one.
void Master::generation_ready() {
  generation_ = std::exchange(starting_, 0);
  serves_catalogs_ = has_catalogs();
  replacements_due_.clear();
  if (!serving_ && !begin_service()) return;
  for (WorkerProcess &worker : workers_)
    if (worker.generation == generation_) pass(worker);
  retire_others();
  if (generation_ == 1) return;
  tell({Kind::reload, 0, 0, ""});
  report_ready();
  errors_.info("the workers of generation " + std::to_string(generation_) + " serve");
}

/// retire_others has the workers of former generations end: those of the front, and those that wait for one.
void Master::retire_others() {
  tell({Kind::retire, 0, generation_, ""});
  for (WorkerProcess &worker : workers_)
    if (worker.ready && worker.generation != generation_) worker.child.socket = HostFileGuard();
}

void Master::generation_failed(const std::string &why) {
  const int failed = std::exchange(starting_, 0);
  kill_generation(failed);
  if (!serving_) return fail_to_start(why);
  const bool others_serve = std::any_of(workers_.begin(), workers_.end(), [this](const WorkerProcess &worker) {
    return worker.generation == generation_;
  });
  const std::string message =
      "reload: " + why + (others_serve ? "; still serving with the former configuration" : "; no worker serves");
  errors_.error(message);
  report_ready(message);
  // After the end of a front: the place of each worker that ends now is filled, with pauses.
  if (!others_serve) generation_ = failed;
}

void Master::kill_generation(int generation) {
  for (const WorkerProcess &worker : workers_)
    if (worker.generation == generation) ::kill(worker.child.pid, SIGKILL);
}

/// abandon gives a worker whose front has ended the time of one request.
void Master::abandon(WorkerProcess &worker) const {
  worker.generation = no_generation;
  worker.end = Clock::now() + settings_.limits.service;
}

/// kill_late kills the workers whose time is over.
void Master::kill_late() {
  for (WorkerProcess &worker : workers_)
    if (worker.end <= Clock::now()) {
      ::kill(worker.child.pid, SIGKILL);
      worker.end = Clock::time_point::max();
    }
}

/// pass gives the socket of a worker that is ready to the front.
void Master::pass(WorkerProcess &worker) {
  if (front_.pid == -1 || !worker.child.socket) return;
  tell({Kind::worker, worker.number, worker.generation, ""}, {worker.child.socket.get()});
  worker.passed = true;
  worker.child.socket = HostFileGuard();
}

void Master::worker_ended(std::list<WorkerProcess>::iterator found, int wait_status) {
  const WorkerProcess worker = std::move(*found);
  workers_.erase(found);
  remove_own_directory(worker.own_directory);
  const bool expected = wait_status == 0 && (stopping_ || worker.generation != generation_);
  const std::string how = "worker " + std::to_string(worker.number) + " (process " + std::to_string(worker.child.pid) +
                          ") " + describe_end(wait_status);
  if (worker.passed)
    tell({Kind::ended, worker.number, 0, expected ? "" : how});
  else if (worker.generation == starting_)
    generation_failed(how + " before it was ready");
  if (stopping_ && worker.ready) note_end(wait_status);
  if (stopping_) return;
  if (worker.generation == generation_) replace(worker);
  if (reload_waits_ && generations() < generation_limit) reload();
}

/// note_end makes the failure of a worker while the server stops that of the server. SIGKILL is none: it comes from the
/// master or from outside.
void Master::note_end(int wait_status) {
  const int status = WIFSIGNALED(wait_status) && WTERMSIG(wait_status) != SIGKILL ? EXIT_FAILURE : 0;
  status_ = std::max(status_, WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : status);
}

/// replace fills the place of a worker at once; later if it has not even become ready, or if many have ended as soon as
/// they were ready.
void Master::replace(const WorkerProcess &worker) {
  fill_place_after(worker.ready ? worker_crashes_.next(*worker.ready, Clock::now()) : worker_backoff_.next());
}

std::size_t Master::generations() const {
  std::set<int> alive;
  for (const WorkerProcess &worker : workers_) alive.insert(worker.generation);
  return alive.size();
}

/* ---- The front ---- */

/// begin_service starts the front, once the first workers are ready. Returns false if the server cannot listen or have
/// a front; it then stops.
bool Master::begin_service() {
  try {
    for (ListeningSocket &listener : listeners_) begin_listening(listener.socket.get(), listener);
  } catch (const ListenError &error) {
    fail_to_start(error.what());
    return false;
  }
  start_front();
  return !stopping_;
}

/// front_works takes note that the front is alive. When the first one is, it has opened its logs: the server is ready.
void Master::front_works() {
  front_alive_ = Clock::now();
  if (stopping_ || std::exchange(serving_, true)) return;
  announce(addresses_of(listeners_, false), addresses_of(listeners_, true), errors_);
  report_ready();
  upgrade_.report_ready();
  if (reload_waits_) reload();
  if (upgrade_waits_) upgrade();
}

void Master::fail_to_start(const std::string &why) {
  errors_.error(why);
  status_ = EXIT_FAILURE;
  stop();
}

void Master::report_ready(const std::string &fault) {
  manager_.ready("Listening on " + addresses_of(listeners_, false) + (fault.empty() ? "" : "; " + fault));
}

/// feed_watchdog tells the service manager at intervals that the master runs, unless the front hangs.
void Master::feed_watchdog() {
  if (!manager_.watchdog()) return;
  const bool hangs = front_alive_ && Clock::now() - *front_alive_ > silence_limit;
  if (!hangs) manager_.alive();
  watchdog_due_ = Clock::now() + *manager_.watchdog();
}

/// grace returns how long front and workers may outlive the master: the front finishes its answers, and then each
/// worker its call.
Duration Master::grace() const { return 2 * settings_.limits.shutdown; }

void Master::start_front() {
  front_due_.reset();
  front_alive_.reset();
  front_begun_ = Clock::now();
  std::vector<host_fd> sockets;
  for (const ListeningSocket &listener : listeners_) sockets.push_back(listener.socket.get());
  try {
    front_ = start_child(
        "rdmd-front", grace(),
        [this](HostFileGuard control) { return run_front(settings_, std::move(listeners_), tls_, std::move(control)); },
        sockets);
  } catch (const std::exception &error) {
    const std::string why = std::string("start the front process: ") + error.what();
    if (!serving_) return fail_to_start(why);
    errors_.error(why);
    front_due_ = Clock::now() + front_backoff_.next();
    return;
  }
  // After the end of a front, new workers may be ready before the next front is.
  for (WorkerProcess &worker : workers_)
    if (worker.ready && worker.generation == generation_) pass(worker);
  // The server is not announced before its front has the workers, or /readyz would say that there are none.
  tell({Kind::begin, 0, 0, ""});
}

/// front_ended starts another front, and a whole generation of workers for it: the others end by themselves, because
/// their sockets are closed. Those that hang are killed after the service timeout, which was the front's task.
void Master::front_ended(int wait_status) {
  front_ = Child();
  if (stopping_) {
    status_ = std::max(status_, WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : EXIT_FAILURE);
    return await_workers();
  }
  const std::string how = "the front process " + describe_end(wait_status);
  if (!serving_) return fail_to_start(how);
  errors_.error(how + "; starting another");
  // A worker may end before its front can be waited for; what was started in its place is not needed either.
  for (WorkerProcess &worker : workers_)
    if (std::exchange(worker.passed, false) || worker.generation == generation_) abandon(worker);
  if (front_alive_) front_backoff_.reset();
  const auto now = Clock::now();
  front_due_ = now + (front_alive_ ? front_crashes_.next(front_begun_, now) : front_backoff_.next());
  if (starting_ == 0) start_generation();
}

/// kill_front ends a front that does not end by itself.
void Master::kill_front() {
  errors_.error("the front process hangs: killing it");
  ::kill(front_.pid, SIGKILL);
  end_ = Clock::time_point::max();
}

void Master::take_message() {
  try {
    const std::optional<Packet> packet = receive_packet(front_.socket.get());
    // The front has ended; reap() finds it.
    if (packet && packet->bytes.empty()) front_.socket = HostFileGuard();
    if (!packet || packet->bytes.empty()) return;
    const ControlMessage message = decode_control(packet->bytes);
    if (message.kind == Kind::alive) front_works();
    for (const WorkerProcess &worker : workers_)
      if (message.kind == Kind::kill && worker.number == message.number) ::kill(worker.child.pid, SIGKILL);
  } catch (const std::exception &error) {
    errors_.error(std::string("a message of the front process is lost: ") + error.what());
  }
}

void Master::tell(const ControlMessage &message, const std::vector<host_fd> &files) {
  if (front_.socket) send_packet(front_.socket.get(), encode(message), files);
}

/* ---- The whole ---- */

void Master::reload() {
  if (stopping_) return;
  // The workers of a start may have read the configuration before it changed.
  if (!serving_) return void(reload_waits_ = true);
  reopen_logs();
  reload_tls();
  reload_waits_ = starting_ != 0 || generations() >= generation_limit;
  if (reload_waits_) return errors_.info("reload: waiting for the workers of former configurations to end");
  errors_.info("reload: logs reopened, starting workers with the configuration as it is now");
  if (loses_catalogs("reload")) return;
  log_mistakes(settings_.config, errors_);
  manager_.reloading();
  start_generation();
}

void Master::upgrade() {
  // A successor that is ready before this process would end it, and this one's predecessor would then continue.
  if (!serving_) return void(upgrade_waits_ = true);
  if (!stopping_ && !loses_catalogs("upgrade")) upgrade_.start(listeners_, errors_);
}

/// loses_catalogs returns true, after a message, if the configuration has no catalog service any more.
bool Master::loses_catalogs(const std::string &action) {
  if (!serves_catalogs_ || has_catalogs()) return false;
  log_mistakes(settings_.config, errors_);
  const std::string message =
      action + ": " + settings_.config +
      ": no catalog service is configured any more; still serving with the former configuration";
  errors_.error(message);
  report_ready(message);
  return true;
}

/// has_catalogs returns true if the configuration, as it is now, has a catalog service. The service also starts without
/// any, and then refuses every request.
bool Master::has_catalogs() const { return !check::configured_catalogs(settings_.config).empty(); }

/// reload_tls reads certificate and key for the next front. The present one reads them too, and logs the result.
void Master::reload_tls() {
  try {
    tls_ = load_tls(settings_, listeners_, [](const std::string &) {});
  } catch (const std::exception &) {
    // Keep the former ones.
  }
}

void Master::reopen_logs() {
  errors_.reopen();
  tell({Kind::reopen, 0, 0, ""});
}

/// await_workers lets the workers end: the front has closed the sockets that it had, and these are the others.
void Master::await_workers() {
  end_ = Clock::now() + settings_.limits.shutdown;
  for (WorkerProcess &worker : workers_) worker.child.socket = HostFileGuard();
}

/// end_workers kills the workers that have not ended in time.
void Master::end_workers() {
  errors_.error("the plug-in has not returned from its last call; exiting without its exit functions");
  status_ = EXIT_FAILURE;
  for (const WorkerProcess &worker : workers_) ::kill(worker.child.pid, SIGKILL);
  for (const WorkerProcess &worker : workers_) ::waitpid(worker.child.pid, nullptr, 0);
  for (const WorkerProcess &worker : workers_) remove_own_directory(worker.own_directory);
}

/// hand_over leaves the listening sockets to the new program.
void Master::hand_over() {
  for (ListeningSocket &listener : listeners_) listener.file.keep();
  manager_.taken_over(upgrade_.successor());
  handed_over_ = true;
  stop();
}

void Master::stop() {
  if (!std::exchange(stopping_, true)) begin_to_stop();
  tell({Kind::stop, 0, 0, ""});
}

void Master::begin_to_stop() {
  if (serving_) errors_.info("stopping");
  if (starting_ != 0) kill_generation(std::exchange(starting_, 0));
  // Refuse new clients. A program that is about to take over still needs the files of the sockets.
  if (upgrade_.descriptor() == -1) listeners_.clear();
  front_due_.reset();
  end_ = Clock::now() + settings_.limits.shutdown + silence_limit;
  if (front_.pid == -1) await_workers();
  if (!handed_over_) manager_.stopping();
}

/// reap takes note of the children that have ended: of the front first, because workers end with their front, and then
/// are not replaced one by one.
void Master::reap() {
  std::vector<std::pair<pid_t, int>> ended;
  int wait_status = 0;
  for (pid_t pid = 0; (pid = ::waitpid(-1, &wait_status, WNOHANG)) > 0;)
    ended.insert(pid == front_.pid ? ended.begin() : ended.end(), {pid, wait_status});
  for (const auto &[pid, how] : ended) process_ended(pid, how);
}

void Master::process_ended(pid_t pid, int wait_status) {
  if (pid == front_.pid) return front_ended(wait_status);
  const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                   [pid](const WorkerProcess &process) { return process.child.pid == pid; });
  if (worker == workers_.end()) return;
  // What it said before its end says more than the end.
  if (!worker->ready && worker->child.socket) take_readiness(*worker);
  worker_ended(worker, wait_status);
}

}  // namespace

int run_master(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade) {
  StandardStream standard_error(stderr, STDERR_FILENO);
  ErrorLog errors(settings.error_log);
  try {
    require_limits(settings);
    // The front opens it: here it only shows that it can be opened.
    const AccessLog access(settings.access_log);
    const auto warn = [&errors](const std::string &text) { errors.warn(text); };
    const int status = Master(settings, open_listeners(settings, std::move(inherited), warn), upgrade, errors).run();
    if (status == EXIT_SUCCESS) errors.info("stopped");
    return status;
  } catch (const std::exception &error) {
    errors.error(error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace rdm::rdmd
