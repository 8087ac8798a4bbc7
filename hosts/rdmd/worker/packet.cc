// SPDX-License-Identifier: MIT
#include "hosts/rdmd/worker/packet.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <system_error>

#include "qxapi/uninterrupted.h"

namespace rdm::rdmd {
namespace {

/// ControlBuffer holds the descriptors that travel with a packet.
struct ControlBuffer {
  alignas(cmsghdr) std::array<char, CMSG_SPACE(packet_files * sizeof(int))> bytes{};
};

[[noreturn]] void fail(int code) { throw std::system_error(code, std::generic_category(), "receive a packet"); }

/// take_files returns the received descriptors, so that none is left open if the packet is refused.
std::vector<HostFileGuard> take_files(msghdr &message) {
  std::vector<HostFileGuard> files;
  for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
      files.emplace_back(fd);
    }
  }
  return files;
}

void attach(msghdr &message, ControlBuffer &control, std::span<const host_fd> files) {
  if (files.empty()) return;
  message.msg_control = control.bytes.data();
  message.msg_controllen = CMSG_SPACE(files.size_bytes());
  cmsghdr *header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(files.size_bytes());
  std::memcpy(CMSG_DATA(header), files.data(), files.size_bytes());
}

}  // namespace

PacketSockets make_packet_sockets() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::system_error(errno, std::generic_category(), "socketpair");
  return PacketSockets{HostFileGuard(ends[0]), HostFileGuard(ends[1])};
}

void set_non_blocking(host_fd socket) { ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK); }

bool send_packet(host_fd socket, std::string_view bytes, std::span<const host_fd> files) {
  if (bytes.size() > packet_limit || files.size() > packet_files) {
    errno = EMSGSIZE;
    return false;
  }
  iovec part{const_cast<char *>(bytes.data()), bytes.size()};
  ControlBuffer control;
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  attach(message, control, files);
  return uninterrupted([&] { return ::sendmsg(socket, &message, MSG_NOSIGNAL); }) >= 0;
}

std::optional<Packet> receive_packet(host_fd socket, bool waits) {
  // One buffer for each thread: a packet is copied out of it in its own size.
  thread_local const std::unique_ptr<char[]> buffer(new char[packet_limit]);
  iovec part{buffer.get(), packet_limit};
  ControlBuffer control;
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.bytes.data();
  message.msg_controllen = control.bytes.size();
  const int flags = MSG_CMSG_CLOEXEC | (waits ? 0 : MSG_DONTWAIT);
  const ssize_t size = uninterrupted([&] { return ::recvmsg(socket, &message, flags); });
  if (size < 0 && errno == EAGAIN) return std::nullopt;
  // A process that is killed with unread packets resets the connection.
  if (size < 0 && errno == ECONNRESET) return Packet{};
  if (size < 0) fail(errno);
  Packet packet{{}, take_files(message), (message.msg_flags & MSG_CTRUNC) != 0};
  if ((message.msg_flags & MSG_TRUNC) != 0) fail(EMSGSIZE);
  packet.bytes.assign(buffer.get(), static_cast<std::size_t>(size));
  return packet;
}

void PacketWriter::text(std::string_view text) {
  number(static_cast<std::uint32_t>(text.size()));
  bytes_.append(text);
}

void PacketWriter::fields(const std::vector<hosts::Field> &fields) {
  number(static_cast<std::uint32_t>(fields.size()));
  for (const hosts::Field &field : fields) {
    text(field.name);
    text(field.value);
  }
}

std::string_view PacketReader::take(std::size_t count) {
  if (count > rest_.size()) throw MalformedPacket();
  const std::string_view taken = rest_.substr(0, count);
  rest_.remove_prefix(count);
  return taken;
}

std::string PacketReader::text() { return std::string(take(number<std::uint32_t>())); }

std::vector<hosts::Field> PacketReader::fields() {
  std::vector<hosts::Field> fields;
  for (auto left = number<std::uint32_t>(); left > 0; --left) {
    std::string name = text();
    fields.push_back({std::move(name), text()});
  }
  return fields;
}

void PacketReader::end() const {
  if (!rest_.empty()) throw MalformedPacket();
}

}  // namespace rdm::rdmd
