// SPDX-License-Identifier: MIT
/// The front's end of a worker process.
#ifndef HOSTS_RDMD_FRONT_WORKER_LINK_H
#define HOSTS_RDMD_FRONT_WORKER_LINK_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/asio/posix/basic_stream_descriptor.hpp>

#include "hosts/rdmd/front/dispatcher.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/worker.h"
#include "hosts/rdmd/worker/protocol.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// WorkerEvents are what a link tells the server. They are called from any thread.
struct WorkerEvents {
  /// kill asks for the end of a worker process.
  std::function<void(int number)> kill;
  /// ended notes that a worker's socket was closed, and describes the request that it had, if any.
  std::function<void(int number, const std::string &request)> ended;
};

class WorkerLink : public Worker, public std::enable_shared_from_this<WorkerLink> {
 public:
  /// `socket` must not block. `dispatcher` and `events` outlive the link. Throws std::system_error.
  WorkerLink(int number, HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher,
             const WorkerEvents &events);

  /// start gives the worker its end of the socket for orders, and begins to read from it. Call it once, before the link
  /// is added to the dispatcher.
  void start();

  int number() const override { return number_; }
  std::size_t capacity() const override { return 32; }
  JobPtr serve(JobPtr job) override;
  std::vector<JobPtr> take_back() override;
  void kill() override;
  void reopen_logs() override;
  void retire() override;

 private:
  using Descriptor = boost::asio::posix::basic_stream_descriptor<io::Executor>;

  /// Order is a job of the worker. Its packet is kept until the socket takes it.
  struct Order {
    std::uint64_t number;
    JobPtr job;
    std::string unsent;
  };

  void await_packets();
  void receive();
  bool receive_some();
  void answered();
  void end();
  void reply(JobPtr job, Fate fate, hosts::ServiceAnswer answer);

  // With the lock held:
  void send_orders();
  std::vector<std::uint64_t> take_unread();
  std::vector<JobPtr> take_unbegun();
  void close();

  const int number_;
  Dispatcher &dispatcher_;
  const WorkerEvents &events_;
  Descriptor socket_;
  AnswerReader reader_;  // used on the strand only

  std::mutex mutex_;                      // guards the members below
  HostFileGuard orders_, worker_orders_;  // the socket for orders: this end, and a copy of the worker's end
  std::deque<Order> held_;                // the worker's jobs, oldest first
  std::uint64_t last_number_ = 0;
  bool killed_ = false;
  bool ended_ = false;
};

}  // namespace rdm::rdmd

#endif
