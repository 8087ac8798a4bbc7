// SPDX-License-Identifier: MIT
/// What the front and a worker say to each other.
///
/// When it has started, a worker tells the master that it is ready, or why it cannot start. The front begins by sending
/// it a second socket. On that one come the orders, requests and the order to reopen the logs, of which the worker
/// takes the next when it has obeyed the last. The front has that end of the socket as well, so it can take back the
/// orders that the worker has not taken. On the first socket the worker sends the answers in the order of the requests,
/// each as one or more packets: the first with the head, each with some pieces of the body, bytes in the packet,
/// files and slices as descriptors.
#ifndef HOSTS_RDMD_WORKER_PROTOCOL_H
#define HOSTS_RDMD_WORKER_PROTOCOL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/worker/packet.h"

namespace rdm::rdmd {

/// The bytes of a body in one packet: all that an answer keeps in memory, usually.
inline constexpr std::size_t inline_limit = hosts::OutputQueue::default_memory;

/* ---- From the worker to the master, once ---- */

/// Readiness is the result of a worker's start.
struct Readiness {
  std::string failure;              // why the service cannot start; empty: it is ready
  std::string temporary_directory;  // TMPDIR as the plug-in's configuration sets it; empty: not set
  std::string own_directory;        // the worker's own directory in it, which is removed when the worker has ended
};

std::string encode(const Readiness &readiness);
/// decode_readiness throws MalformedPacket, as the decoders below do.
Readiness decode_readiness(std::string_view bytes);

/* ---- From the front to a worker ---- */

/// RequestOrder is a request with a number by which the front knows it.
struct RequestOrder {
  std::uint64_t number;
  hosts::ServiceRequest request;
};

std::string encode_request(std::uint64_t number, const hosts::ServiceRequest &request);
std::string encode_reopen();
/// decode_order returns nothing for the order to reopen the logs.
std::optional<RequestOrder> decode_order(std::string_view bytes);

/* ---- From a worker to the front ---- */

/// OutgoingPacket refers to the descriptors of the answer that it was made from.
struct OutgoingPacket {
  std::string bytes;
  std::vector<host_fd> files;
};

/// encode_answer returns the packets of an answer, which must outlive them.
std::vector<OutgoingPacket> encode_answer(const hosts::ServiceAnswer &answer);

/// AnswerReader puts the packets of an answer together again. If this process had no descriptors for its files, the
/// answer is broken, with the failure EMFILE.
class AnswerReader {
 public:
  /// add takes the next packet. Returns true if it was the last; then take returns the answer.
  bool add(Packet packet);
  hosts::ServiceAnswer take();

 private:
  std::optional<hosts::ServiceAnswer> answer_;
  bool lacks_files_ = false;
};

}  // namespace rdm::rdmd

#endif
