// SPDX-License-Identifier: MIT
/// What the front and a worker say to each other.
///
/// The front sends a request, and nothing more until its answer is complete, or the order to reopen the logs. The
/// worker sends an answer as one or more packets: the first with the head, each with some pieces of the body, bytes in
/// the packet and files as descriptors. Before that, it has told the master that it is ready, or why it cannot start.
#ifndef HOSTS_RDMD_WORKER_PROTOCOL_H
#define HOSTS_RDMD_WORKER_PROTOCOL_H

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

/// An order without a request reopens the logs.
std::string encode_request(const hosts::ServiceRequest &request);
std::string encode_reopen();
std::optional<hosts::ServiceRequest> decode_order(std::string_view bytes);

/* ---- From a worker to the front ---- */

/// OutgoingPacket refers to the descriptors of the answer that it was made from.
struct OutgoingPacket {
  std::string bytes;
  std::vector<host_fd> files;
};

/// encode_answer returns the packets of an answer, which must outlive them.
std::vector<OutgoingPacket> encode_answer(const hosts::ServiceAnswer &answer);

/// AnswerReader puts the packets of an answer together again.
class AnswerReader {
 public:
  /// add takes the next packet. Returns true if it was the last; then take returns the answer.
  bool add(Packet packet);
  hosts::ServiceAnswer take();

 private:
  std::optional<hosts::ServiceAnswer> answer_;
};

}  // namespace rdm::rdmd

#endif
