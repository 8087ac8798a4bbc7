// SPDX-License-Identifier: MIT
#include "hosts/rdmd/worker/worker.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "hosts/common/host_table.h"
#include "hosts/common/service_call.h"
#include "hosts/rdmd/leftovers.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/standard_stream.h"
#include "hosts/rdmd/transform/transform.h"
#include "hosts/rdmd/worker/own_directory.h"
#include "hosts/rdmd/worker/protocol.h"
#include "qxapi/temporary_directory.h"

namespace rdm::rdmd {
namespace {

class WorkerService {
 public:
  WorkerService(const Settings &settings, HostFileGuard socket, ErrorLog &errors)
      : settings_(settings), socket_(std::move(socket)), errors_(errors) {}

  int run() {
    const Readiness readiness = start();
    if (!send_packet(socket_.get(), encode(readiness)) || !readiness.failure.empty()) return EXIT_FAILURE;
    const HostFileGuard orders = receive_orders();
    if (orders.get() != -1) obey_all(orders.get());
    return EXIT_SUCCESS;
  }

 private:
  /// start initialises the plug-in, which sets TMPDIR, and then moves TMPDIR to a directory of this worker.
  Readiness start() {
    try {
      plugin_.emplace(settings_.plugin);
      const std::string refused = plugin_->init(settings_.config);
      if (!refused.empty()) return {settings_.config + ": " + refused, "", ""};
      return enter_own_directory();
    } catch (const std::exception &error) {
      return {error.what(), "", ""};
    }
  }

  /// enter_own_directory is not essential: without it, files of a killed worker stay until the next start.
  Readiness enter_own_directory() {
    const char *const directory = temporary_directory(::stat);
    Readiness readiness{"", directory != nullptr ? directory : "", ""};
    if (directory == nullptr) return readiness;
    remove_unused_directories(directory);
    if (const std::size_t files = remove_leftovers(directory); files > 0)
      errors_.info("removed " + std::to_string(files) + " temporary files of killed processes: " + directory);
    try {
      directory_ = std::make_unique<OwnDirectory>(directory);
      ::setenv("TMPDIR", directory_->path().c_str(), 1);
      readiness.own_directory = directory_->path();
    } catch (const std::system_error &error) {
      errors_.warn(error.what());
    }
    return readiness;
  }

  /// receive_orders returns the socket on which the front sends orders, or none if the front has ended.
  HostFileGuard receive_orders() {
    std::optional<Packet> packet = receive_packet(socket_.get());
    if (packet->lacks_files) throw std::system_error(EMFILE, std::generic_category(), "receive a socket");
    return packet->files.empty() ? HostFileGuard() : std::move(packet->files.front());
  }

  void obey_all(host_fd orders) {
    for (;;) {
      const std::optional<Packet> packet = receive_packet(orders);
      if (packet->bytes.empty()) return;
      obey(packet->bytes);
    }
  }

  void obey(std::string_view bytes) {
    std::optional<RequestOrder> order = decode_order(bytes);
    if (order) return serve(std::move(order->request));
    errors_.reopen();
    hosts::reopen_logs();
  }

  void serve(hosts::ServiceRequest request) {
    const hosts::ServiceAnswer answer = answer_to(std::move(request));
    if (!send(answer) && !send(broken_answer())) fail_to_send();
  }

  static hosts::ServiceAnswer broken_answer() {
    hosts::ServiceAnswer answer;
    answer.outcome = hosts::Outcome::broken;
    return answer;
  }

  /// fail_to_send ends this process, so that the front does not wait for the rest of an answer.
  [[noreturn]] static void fail_to_send() { throw std::system_error(errno, std::generic_category(), "send an answer"); }

  hosts::ServiceAnswer answer_to(hosts::ServiceRequest request) {
    try {
      return answer_request(*plugin_, std::move(request), settings_.gzip);
    } catch (const std::exception &error) {
      errors_.error(std::string("a request failed: ") + error.what());
      return broken_answer();
    }
  }

  /// send returns false if not even the first packet could be sent, so that another answer can be.
  bool send(const hosts::ServiceAnswer &answer) {
    bool first = true;
    for (const OutgoingPacket &packet : encode_answer(answer)) {
      const bool sent = send_packet(socket_.get(), packet.bytes, packet.files);
      // The front has no use for the answer any more; the next packet is the end.
      if (!sent && errno == EPIPE) return true;
      if (!sent && first) return false;
      if (!sent) fail_to_send();
      first = false;
    }
    return true;
  }

  const Settings &settings_;
  const HostFileGuard socket_;
  ErrorLog &errors_;
  std::optional<hosts::Plugin> plugin_;
  std::unique_ptr<OwnDirectory> directory_;
};

}  // namespace

int run_worker(const Settings &settings, HostFileGuard socket) {
  StandardStream standard_error(stderr, STDERR_FILENO);
  ErrorLog errors(settings.error_log);
  hosts::bind_host([&errors](const hosts::Report &report) { errors.report(report); });
  StandardStream output(stdout, STDOUT_FILENO,
                        [&errors](std::size_t lines) { return errors.dropped("standard output", lines); });
  int status = EXIT_FAILURE;
  try {
    status = WorkerService(settings, std::move(socket), errors).run();
  } catch (const std::exception &error) {
    errors.error(error.what());
  }
  hosts::run_exits();
  return status;
}

}  // namespace rdm::rdmd
