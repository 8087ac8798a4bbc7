// SPDX-License-Identifier: MIT
/// Packets between the processes of the server: bytes with descriptors, sent whole over a SOCK_SEQPACKET pair, and the
/// encoding of values in them.
///
/// Both ends run the same program, or its predecessor's workers the same protocol, so numbers have the machine's byte
/// order. A worker that has gone wrong may still send anything: the reader checks every length.
#ifndef HOSTS_RDMD_WORKER_PACKET_H
#define HOSTS_RDMD_WORKER_PACKET_H

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "hosts/common/head.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// The limits of one packet.
inline constexpr std::size_t packet_limit = std::size_t{256} * 1024;
inline constexpr std::size_t packet_files = 64;

struct Packet {
  std::string bytes;
  std::vector<HostFileGuard> files;
  bool lacks_files = false;  // this process had no descriptors for all of them
};

/// PacketSockets is a connected pair; both ends are close-on-exec.
struct PacketSockets {
  HostFileGuard first, second;
};

/// make_packet_sockets throws std::system_error.
PacketSockets make_packet_sockets();

void set_non_blocking(host_fd socket);

/// send_packet sends bytes and copies of descriptors. Returns false with errno set: EPIPE if the other end is closed,
/// EMSGSIZE if the packet is too large for the socket, EAGAIN if the socket does not block and is full.
bool send_packet(host_fd socket, std::string_view bytes, std::span<const host_fd> files = {});

/// receive_packet reads a packet. The result is empty if there is none, and the socket does not block or `waits` is
/// false. The result has no bytes if the other end is closed. Throws std::system_error, with EMSGSIZE for a packet
/// beyond the limits.
std::optional<Packet> receive_packet(host_fd socket, bool waits = true);

/// MalformedPacket is thrown for a packet that does not contain the expected values.
class MalformedPacket : public std::runtime_error {
 public:
  MalformedPacket() : std::runtime_error("malformed packet") {}
};

class PacketWriter {
 public:
  PacketWriter() { bytes_.reserve(usual_size); }

  template <typename Number>
  void number(Number value) {
    static_assert(std::is_arithmetic_v<Number> || std::is_enum_v<Number>);
    bytes_.append(reinterpret_cast<const char *>(&value), sizeof value);
  }
  void text(std::string_view text);
  void fields(const std::vector<hosts::Field> &fields);

  const std::string &bytes() const { return bytes_; }
  std::string take() { return std::move(bytes_); }

 private:
  static constexpr std::size_t usual_size = 1000;  // of a request, or of an answer without its body

  std::string bytes_;
};

/// PacketReader reads what PacketWriter has written, in the same order. Members throw MalformedPacket.
class PacketReader {
 public:
  explicit PacketReader(std::string_view bytes) : rest_(bytes) {}

  template <typename Number>
  Number number() {
    static_assert(std::is_arithmetic_v<Number>);
    Number value;
    std::memcpy(&value, take(sizeof value).data(), sizeof value);
    return value;
  }
  /// boolean and choice read one byte and check it: a choice is less than `count`.
  bool boolean() { return choice<unsigned char>(2) != 0; }
  template <typename Choice>
  Choice choice(int count) {
    const auto value = number<unsigned char>();
    if (value >= count) throw MalformedPacket();
    return static_cast<Choice>(value);
  }
  std::string text();
  std::vector<hosts::Field> fields();
  /// end checks that nothing is left.
  void end() const;

 private:
  std::string_view take(std::size_t count);

  std::string_view rest_;
};

}  // namespace rdm::rdmd

#endif
