// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/master_link.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include <boost/asio/strand.hpp>

namespace rdm::rdmd {
namespace {

using boost::system::error_code;

constexpr std::chrono::seconds alive_interval{1};

}  // namespace

/* ---- The deaths of workers ---- */

void WorkerDeaths::link_ended(int number, const std::string &request) {
  std::string how;
  {
    const std::lock_guard lock(mutex_);
    auto known = ends_.extract(number);
    if (known.empty()) {
      requests_[number] = request;
      return;
    }
    how = std::move(known.mapped());
  }
  log(how, request);
}

void WorkerDeaths::process_ended(int number, const std::string &how) {
  std::string request;
  {
    const std::lock_guard lock(mutex_);
    auto known = requests_.extract(number);
    if (known.empty()) {
      ends_[number] = how;
      return;
    }
    request = std::move(known.mapped());
  }
  log(how, request);
}

void WorkerDeaths::log(const std::string &how, const std::string &request) {
  if (!how.empty()) errors_.error(request.empty() ? how : how + " while it served " + request);
}

/* ---- The master ---- */

MasterLink::MasterLink(HostFileGuard socket, const io::Executor &strand, Dispatcher &dispatcher, ErrorLog &errors,
                       Handler handle, std::function<void()> lost)
    : strand_(strand),
      socket_(strand),
      alive_(strand),
      dispatcher_(dispatcher),
      errors_(errors),
      deaths_(errors),
      handle_(std::move(handle)),
      lost_(std::move(lost)) {
  set_non_blocking(socket.get());
  socket_.assign(socket.get());
  socket.release();
  events_.kill = [this](int number) { send(ControlMessage::Kind::kill, number); };
  events_.ended = [this](int number, const std::string &request) { deaths_.link_ended(number, request); };
}

void MasterLink::start() { await_messages(); }

void MasterLink::stop() {
  stopped_ = true;
  alive_.cancel();
  error_code ignored;
  socket_.cancel(ignored);
}

void MasterLink::await_messages() {
  if (stopped_) return;
  socket_.async_wait(Descriptor::wait_read, [this](const error_code &error) {
    if (!error) receive();
  });
}

void MasterLink::receive() {
  try {
    while (std::optional<Packet> packet = receive_packet(socket_.native_handle())) {
      if (packet->bytes.empty()) return lost_();
      handle(std::move(*packet));
    }
  } catch (const std::exception &error) {
    errors_.error(std::string("a message of the master is lost: ") + error.what());
  }
  await_messages();
}

void MasterLink::handle(Packet packet) {
  const ControlMessage message = decode_control(packet.bytes);
  switch (message.kind) {
    case ControlMessage::Kind::worker:
      if (packet.lacks_files) throw std::system_error(EMFILE, std::generic_category(), "take a worker");
      if (packet.files.empty()) throw MalformedPacket();
      return add_worker(message, std::move(packet.files.front()));
    case ControlMessage::Kind::begin:
      return report_alive();
    case ControlMessage::Kind::retire:
      return dispatcher_.retire_before(message.generation);
    case ControlMessage::Kind::ended:
      deaths_.process_ended(message.number, message.text);
      return handle_(message);
    default:
      return handle_(message);
  }
}

void MasterLink::add_worker(const ControlMessage &message, HostFileGuard socket) {
  set_non_blocking(socket.get());
  const auto executor = io::Executor(strand_.get_inner_executor());
  const auto link = std::make_shared<WorkerLink>(message.number, std::move(socket), executor, dispatcher_, events_);
  link->start();
  dispatcher_.add(link, message.generation);
}

/// send drops a message that the master does not take at once: it reads all the time.
void MasterLink::send(ControlMessage::Kind kind, int number) {
  send_packet(socket_.native_handle(), encode(ControlMessage{kind, number, 0, ""}));
}

void MasterLink::report_alive() {
  // stop() may have come too late to cancel an expired timer.
  if (stopped_) return;
  send(ControlMessage::Kind::alive);
  alive_.expires_after(alive_interval);
  alive_.async_wait([this](const error_code &error) {
    if (!error) report_alive();
  });
}

}  // namespace rdm::rdmd
