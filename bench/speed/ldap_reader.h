// SPDX-License-Identifier: MIT
/// A client of LDAP that reads as fast as it can.
#ifndef BENCH_SPEED_LDAP_READER_H
#define BENCH_SPEED_LDAP_READER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback.h"

namespace rdm::bench {

/// LdapSearch asks for all entries below o=bench that have a number, or for those with at least the number `from`; with
/// all their attributes, or with those named.
struct LdapSearch {
  std::optional<std::uint64_t> from;
  std::vector<std::string> attributes;
};

/// encode returns the search as a message of LDAP version 3 with the number 1.
std::string encode(const LdapSearch &search);

/// LdapMessage is the size of a message and the tag of its operation.
struct LdapMessage {
  std::size_t size = 0;
  unsigned char operation = 0;
  bool operator==(const LdapMessage &) const = default;
};

inline constexpr unsigned char ldap_entry = 0x64, ldap_done = 0x65;

/// parse_message returns the message at the start of `bytes`, which may end within it; nothing if more bytes are needed
/// to tell. Its size is 0 if the bytes are no message.
std::optional<LdapMessage> parse_message(std::string_view bytes);

/// LdapReader asks slapd over one connection that is kept, as anybody. It reads into a fixed buffer.
class LdapReader {
 public:
  /// Throws std::runtime_error if slapd does not listen.
  explicit LdapReader(int port);

  /// ask sends a search, reads the answer to its end, and returns the number of entries. Throws std::runtime_error if
  /// the connection ends before.
  std::uint64_t ask(const LdapSearch &search);

 private:
  static constexpr std::size_t buffer_size = std::size_t{256} * 1024;

  /// receive appends bytes to those that the buffer holds; receive_start does until the start of a message is there.
  void receive();
  LdapMessage receive_start();

  Socket socket_;
  std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(buffer_size);
  std::size_t begin_ = 0, end_ = 0;
};

}  // namespace rdm::bench

#endif
