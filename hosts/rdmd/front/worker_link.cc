// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/worker_link.h"

#include <cerrno>
#include <exception>
#include <optional>
#include <utility>

#include <boost/asio/dispatch.hpp>

namespace rdm::rdmd {

using boost::system::error_code;

WorkerLink::WorkerLink(int number, HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher,
                       const WorkerEvents &events)
    : number_(number), dispatcher_(dispatcher), events_(events), socket_(strand) {
  socket_.assign(socket.get());
  socket.release();
}

/* ---- For the dispatcher ---- */

JobPtr WorkerLink::serve(JobPtr job) {
  const std::string order = encode_request(job->request);
  const std::lock_guard lock(mutex_);
  if (ended_) return job;
  // Before the packet is sent: the answer may arrive at once, on another thread.
  job_ = std::move(job);
  if (send_packet(socket_.native_handle(), order)) return nullptr;
  return std::move(job_);
}

void WorkerLink::kill() {
  {
    const std::lock_guard lock(mutex_);
    if (!job_ || ended_) return;
    killed_ = true;
  }
  events_.kill(number_);
}

void WorkerLink::reopen_logs() {
  const std::lock_guard lock(mutex_);
  if (!ended_) send_packet(socket_.native_handle(), encode_reopen());
}

void WorkerLink::retire() {
  boost::asio::dispatch(socket_.get_executor(), [self = shared_from_this()] {
    JobPtr dropped;  // destroyed without the lock
    const std::lock_guard lock(self->mutex_);
    self->ended_ = true;
    dropped = std::move(self->job_);
    error_code ignored;
    self->socket_.close(ignored);
    self->events_.ended(self->number_, "");
  });
}

/* ---- From the worker ---- */

void WorkerLink::await_packets() {
  socket_.async_wait(Descriptor::wait_read, [self = shared_from_this()](const error_code &error) {
    if (!error) self->receive();
  });
}

void WorkerLink::receive() {
  try {
    while (receive_some()) continue;
    if (socket_.is_open()) await_packets();
  } catch (const std::exception &) {
    // The worker sends nonsense, or descriptors are short: nothing that follows can be understood.
    events_.kill(number_);
    end();
  }
}

/// receive_some takes one packet. Returns false if none is expected at once: there is none at present, the answer is
/// complete, or the worker has ended.
bool WorkerLink::receive_some() {
  std::optional<Packet> packet = receive_packet(socket_.native_handle());
  if (!packet) return false;
  if (packet->bytes.empty()) {
    end();
    return false;
  }
  if (!reader_.add(std::move(*packet))) return true;
  answered();
  return false;
}

void WorkerLink::answered() {
  hosts::ServiceAnswer answer = reader_.take();
  JobPtr job;
  {
    const std::lock_guard lock(mutex_);
    job = std::move(job_);
  }
  if (!job) throw MalformedPacket();
  // First, so that the worker has its next request while this thread sends the answer.
  dispatcher_.finished(*this);
  reply(std::move(job), Fate::answered, std::move(answer));
}

void WorkerLink::end() {
  JobPtr job;
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(ended_, true)) return;
    job = std::move(job_);
    error_code ignored;
    socket_.close(ignored);
  }
  dispatcher_.lost(*this);
  events_.ended(number_, job ? describe(job->request) : "");
  if (job) reply(std::move(job), killed_ ? Fate::timed_out : Fate::crashed, {});
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
