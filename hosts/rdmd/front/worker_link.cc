// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/worker_link.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include <boost/asio/dispatch.hpp>

namespace rdm::rdmd {

using boost::system::error_code;

namespace {

/// How many packets of a worker are taken before others get their turn.
constexpr int most_packets = 16;

}  // namespace

WorkerLink::WorkerLink(int number, HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher,
                       const WorkerEvents &events)
    : number_(number), dispatcher_(dispatcher), events_(events), socket_(strand) {
  PacketSockets sockets = make_packet_sockets();
  orders_ = std::move(sockets.first);
  worker_orders_ = std::move(sockets.second);
  set_non_blocking(orders_.get());
  socket_.assign(socket.get());
  socket.release();
}

void WorkerLink::start() {
  const host_fd end = worker_orders_.get();
  // If the worker has ended, reading tells.
  if (!send_packet(socket_.native_handle(), "orders", {&end, 1}) && errno != EPIPE)
    throw std::system_error(errno, std::generic_category(), "send a socket to a worker");
  await_packets();
}

/* ---- For the dispatcher ---- */

JobPtr WorkerLink::serve(JobPtr job) {
  const std::lock_guard lock(mutex_);
  if (ended_) return job;
  const std::uint64_t number = ++last_number_;
  std::string packet = encode_request(number, job->request);
  // Before the packet is sent: the answer may arrive at once, on another thread.
  held_.push_back({number, std::move(job), std::move(packet)});
  send_orders();
  return nullptr;
}

/// send_orders sends the packets that the socket takes. The rest follow after an answer; if the worker has ended,
/// reading tells.
void WorkerLink::send_orders() {
  for (Order &order : held_) {
    if (order.unsent.empty()) continue;
    if (!send_packet(orders_.get(), order.unsent)) return;
    order.unsent.clear();
  }
}

std::vector<JobPtr> WorkerLink::take_back() {
  const std::lock_guard lock(mutex_);
  return ended_ ? std::vector<JobPtr>() : take_unbegun();
}

/// take_unbegun takes the jobs whose orders the worker has not read, and cannot read any more.
std::vector<JobPtr> WorkerLink::take_unbegun() {
  std::vector<JobPtr> jobs;
  jobs.reserve(held_.size());
  const std::vector<std::uint64_t> unread = take_unread();
  std::erase_if(held_, [&](Order &order) {
    const bool is_unread = std::find(unread.begin(), unread.end(), order.number) != unread.end();
    if (!is_unread && order.unsent.empty()) return false;
    jobs.push_back(std::move(order.job));
    return true;
  });
  return jobs;
}

/// take_unread takes the orders that the worker has not read from its end of the socket, and returns their numbers.
std::vector<std::uint64_t> WorkerLink::take_unread() {
  std::vector<std::uint64_t> numbers;
  bool reopens = false;
  while (const std::optional<Packet> packet = receive_packet(worker_orders_.get(), false)) {
    const std::optional<RequestOrder> order = decode_order(packet->bytes);
    order ? numbers.push_back(order->number) : void(reopens = true);
  }
  if (reopens) send_packet(orders_.get(), encode_reopen());
  return numbers;
}

void WorkerLink::kill() {
  {
    const std::lock_guard lock(mutex_);
    if (held_.empty() || ended_) return;
    killed_ = true;
  }
  events_.kill(number_);
}

void WorkerLink::reopen_logs() {
  const std::lock_guard lock(mutex_);
  if (!ended_) send_packet(orders_.get(), encode_reopen());
}

void WorkerLink::retire() {
  boost::asio::dispatch(socket_.get_executor(), [self = shared_from_this()] {
    std::deque<Order> dropped;  // destroyed without the lock
    const std::lock_guard lock(self->mutex_);
    self->ended_ = true;
    dropped.swap(self->held_);
    self->close();
    self->events_.ended(self->number_, "");
  });
}

/// close ends the worker when it has finished its job, by the end of its orders.
void WorkerLink::close() {
  error_code ignored;
  socket_.close(ignored);
  orders_ = HostFileGuard();
  worker_orders_ = HostFileGuard();
}

/* ---- From the worker ---- */

void WorkerLink::await_packets() {
  socket_.async_wait(Descriptor::wait_read, [self = shared_from_this()](const error_code &error) {
    if (!error) self->receive();
  });
}

void WorkerLink::receive() {
  try {
    // An answer may be the last of a retired worker, whose socket is closed then.
    for (int count = 0; count < most_packets && socket_.is_open() && receive_some(); ++count) continue;
    if (socket_.is_open()) await_packets();
  } catch (const std::exception &) {
    // The worker sends nonsense, or memory is short: nothing that follows can be understood.
    events_.kill(number_);
    end();
  }
}

/// receive_some takes one packet. Returns false if there is none at present, or the worker has ended.
bool WorkerLink::receive_some() {
  std::optional<Packet> packet = receive_packet(socket_.native_handle());
  if (!packet) return false;
  if (packet->bytes.empty()) {
    end();
    return false;
  }
  if (reader_.add(std::move(*packet))) answered();
  return true;
}

void WorkerLink::answered() {
  hosts::ServiceAnswer answer = reader_.take();
  JobPtr job;
  {
    const std::lock_guard lock(mutex_);
    if (held_.empty()) throw MalformedPacket();
    job = std::move(held_.front().job);
    held_.pop_front();
    if (!held_.empty()) held_.front().job->begun_at = io::Clock::now();
    send_orders();
  }
  // First, so that the worker has its next request while this thread sends the answer.
  dispatcher_.finished(*this, 1);
  reply(std::move(job), Fate::answered, std::move(answer));
}

/// end ends the link. The job that the worker served fails; those that it had not begun are queued again.
void WorkerLink::end() {
  std::deque<Order> begun;
  std::vector<JobPtr> unbegun;
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(ended_, true)) return;
    try {
      unbegun = take_unbegun();
    } catch (const std::exception &) {
      // Without memory to take them back, they fail as well.
    }
    begun.swap(held_);
    close();
  }
  dispatcher_.lost(*this, std::move(unbegun));
  events_.ended(number_, begun.empty() ? "" : describe(begun.front().job->request));
  for (Order &order : begun) reply(std::move(order.job), killed_ ? Fate::timed_out : Fate::crashed, {});
}

void WorkerLink::reply(JobPtr job, Fate fate, hosts::ServiceAnswer answer) {
  Reply reply;
  reply.fate = fate;
  reply.answer = std::move(answer);
  reply.queued = job->begun_at - job->queued_at;
  reply.served = io::Clock::now() - job->begun_at;
  reply.worker = number_;
  job->reply(std::move(reply));
}

}  // namespace rdm::rdmd
