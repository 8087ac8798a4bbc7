// SPDX-License-Identifier: MIT
/// The front's end of a worker process.
#ifndef HOSTS_RDMD_FRONT_WORKER_LINK_H
#define HOSTS_RDMD_FRONT_WORKER_LINK_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>

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
  /// `socket` must not block. `dispatcher` and `events` outlive the link.
  WorkerLink(int number, HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher,
             const WorkerEvents &events);

  /// start begins to read from the worker. Call it once, before the link is added to the dispatcher.
  void start() { await_packets(); }

  int number() const override { return number_; }
  JobPtr serve(JobPtr job) override;
  void kill() override;
  void reopen_logs() override;
  void retire() override;

 private:
  using Descriptor = boost::asio::posix::basic_stream_descriptor<io::Executor>;

  void await_packets();
  void receive();
  bool receive_some();
  void answered();
  void end();
  void reply(JobPtr job, Fate fate, hosts::ServiceAnswer answer);

  const int number_;
  Dispatcher &dispatcher_;
  const WorkerEvents &events_;
  Descriptor socket_;
  AnswerReader reader_;  // used on the strand only

  std::mutex mutex_;  // guards the members below, and the socket while a packet is sent
  JobPtr job_;
  bool killed_ = false;
  bool ended_ = false;
};

}  // namespace rdm::rdmd

#endif
