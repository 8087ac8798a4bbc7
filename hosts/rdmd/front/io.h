// SPDX-License-Identifier: MIT
/// The types of network input and output: Asio's, each bound to a strand, so that no call goes through a pointer.
#ifndef HOSTS_RDMD_FRONT_IO_H
#define HOSTS_RDMD_FRONT_IO_H

#include <chrono>

#include <boost/asio/basic_signal_set.hpp>
#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/strand.hpp>

namespace rdm::rdmd::io {

using Clock = std::chrono::steady_clock;
using Executor = boost::asio::strand<boost::asio::io_context::executor_type>;
using Tcp = boost::asio::ip::tcp;
/// TCP of either family, or Unix-domain streams.
using Protocol = boost::asio::generic::stream_protocol;
using Socket = boost::asio::basic_stream_socket<Protocol, Executor>;
using Acceptor = boost::asio::basic_socket_acceptor<Protocol, Executor>;
using Timer = boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, Executor>;
using Signals = boost::asio::basic_signal_set<Executor>;

}  // namespace rdm::rdmd::io

#endif
