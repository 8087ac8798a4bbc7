// SPDX-License-Identifier: MIT
/// Reads any bytes as the packets that the processes of the server exchange. Nothing but a MalformedPacket may come of
/// them, and what is accepted must encode and decode to itself. The first byte chooses the kind; in an answer, the byte
/// 0xFE ends a packet. With each packet come
/// descriptors of two files.

#include <fcntl.h>

#include <array>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "hosts/rdmd/master/control.h"
#include "hosts/rdmd/worker/protocol.h"

using namespace rdm;

namespace {

constexpr char packet_end = '\xFE';

void read_order(std::string_view bytes) {
  const auto order = rdmd::decode_order(bytes);
  const std::string again = order ? rdmd::encode_request(order->number, order->request) : rdmd::encode_reopen();
  fuzz::require(again == bytes, "an order does not encode to itself");
}

/// copies returns duplicates of descriptors.
std::vector<HostFileGuard> copies(std::span<const host_fd> files) {
  std::vector<HostFileGuard> made;
  for (const host_fd file : files) made.emplace_back(::fcntl(file, F_DUPFD_CLOEXEC, 0));
  return made;
}

/// joined returns the bytes of the packets of an answer.
std::string joined(const hosts::ServiceAnswer &answer) {
  std::string text;
  for (const rdmd::OutgoingPacket &packet : rdmd::encode_answer(answer)) text += packet.bytes;
  return text;
}

void check_answer(const hosts::ServiceAnswer &answer) {
  rdmd::AnswerReader reader;
  bool last = false;
  for (const rdmd::OutgoingPacket &packet : rdmd::encode_answer(answer)) {
    fuzz::require(!last, "a packet follows the last");
    last = reader.add({packet.bytes, copies(packet.files)});
  }
  fuzz::require(last, "the last packet is not marked");
  fuzz::require(joined(reader.take()) == joined(answer), "an answer does not decode to itself");
}

void read_answer(std::string_view bytes) {
  static const fuzz::MemoryFile one("one"), other("other");
  static const HostFileGuard files[] = {HostFileGuard(host_open_read(one.path().c_str())),
                                        HostFileGuard(host_open_read(other.path().c_str()))};
  rdmd::AnswerReader reader;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find(packet_end);
    if (reader.add({std::string(bytes.substr(0, end)), copies(std::array{files[0].get(), files[1].get()})}))
      return check_answer(reader.take());
    bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
  }
}

void read_one(unsigned kind, std::string_view bytes) {
  switch (kind % 4) {
    case 0:
      return read_order(bytes);
    case 1:
      return read_answer(bytes);
    case 2:
      fuzz::require(rdmd::encode(rdmd::decode_readiness(bytes)) == bytes, "a readiness does not encode to itself");
      return;
    default:
      fuzz::require(rdmd::encode(rdmd::decode_control(bytes)) == bytes, "a message does not encode to itself");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  try {
    read_one(data[0], fuzz::text(data + 1, size - 1));
  } catch (const rdmd::MalformedPacket &) {
  }
  return 0;
}
