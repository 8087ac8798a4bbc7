// SPDX-License-Identifier: MIT
/// The front's end of the master process.
#ifndef HOSTS_RDMD_FRONT_MASTER_LINK_H
#define HOSTS_RDMD_FRONT_MASTER_LINK_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <boost/asio/posix/basic_stream_descriptor.hpp>

#include "hosts/rdmd/front/dispatcher.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/worker_link.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/master/control.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// WorkerDeaths logs how a worker ended together with the request that it had: one is known to the master, the other to
/// the link, and either may come first. Members may be called from any thread.
class WorkerDeaths {
 public:
  explicit WorkerDeaths(ErrorLog &errors) : errors_(errors) {}
  /// link_ended notes that the socket of a worker was closed; `request` is empty if it had none.
  void link_ended(int number, const std::string &request);
  /// process_ended notes how the process ended, such as "worker 3 (process 12) was killed by signal 11"; empty if it
  /// ended as it should, which is not logged.
  void process_ended(int number, const std::string &how);

 private:
  void log(const std::string &how, const std::string &request);

  ErrorLog &errors_;
  std::mutex mutex_;
  std::map<int, std::string> requests_, ends_;
};

class MasterLink {
 public:
  using Handler = std::function<void(const ControlMessage &message)>;

  /// The link reads on `strand` and adds workers to the dispatcher. `handle` gets all messages but `worker`, `begin`
  /// and `retire`; `lost` is called when the master has ended.
  MasterLink(HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher, ErrorLog &errors, Handler handle,
             std::function<void()> lost);

  /// start begins to read. From the message `begin` on, the link tells the master now and then that this process works.
  void start();
  /// stop ends both; the I/O context then has no work of this link.
  void stop();

 private:
  using Descriptor = boost::asio::posix::basic_stream_descriptor<io::Executor>;

  void await_messages();
  void receive();
  void handle(Packet packet);
  void add_worker(const ControlMessage &message, HostFileGuard socket);
  void send(ControlMessage::Kind kind, int number = 0);
  void report_alive();

  io::Executor strand_;
  Descriptor socket_;
  io::Timer alive_;
  Dispatcher &dispatcher_;
  ErrorLog &errors_;
  WorkerDeaths deaths_;
  WorkerEvents events_;
  Handler handle_;
  std::function<void()> lost_;
  bool stopped_ = false;
};

}  // namespace rdm::rdmd

#endif
