// SPDX-License-Identifier: MIT
#include "speed/ldap_reader.h"

#include <sys/socket.h>

#include <cstring>

#include "site.h"
#include "speed/slapd.h"

namespace rdm::bench {
namespace {

/// Tags of BER.
constexpr unsigned char integer_tag = 0x02, octets_tag = 0x04, enumerated_tag = 0x0a, boolean_tag = 0x01,
                        sequence_tag = 0x30;
/// Tags of a search and its filters.
constexpr unsigned char search_tag = 0x63, at_least_tag = 0xa5, present_tag = 0x87;

/// element returns an element of BER. Its contents have less than 65,536 bytes.
std::string element(unsigned char tag, const std::string &contents) {
  std::string text(1, static_cast<char>(tag));
  const std::size_t size = contents.size();
  if (size >= 128) text += {static_cast<char>(0x82), static_cast<char>(size >> 8)};
  return text + static_cast<char>(size & 0xff) + contents;
}

/// small returns an element whose contents are one byte.
std::string small(unsigned char tag, char value) { return element(tag, {value}); }

std::string filter_of(const LdapSearch &search) {
  if (!search.from) return element(present_tag, slapd_number);
  return element(at_least_tag, element(octets_tag, slapd_number) + element(octets_tag, std::to_string(*search.from)));
}

}  // namespace

std::string encode(const LdapSearch &search) {
  constexpr char whole_subtree = 2, never_follow = 0, no_limit = 0, no = 0, message_number = 1;
  std::string attributes;
  for (const std::string &name : search.attributes) attributes += element(octets_tag, name);
  const std::string operation = element(octets_tag, "o=bench") + small(enumerated_tag, whole_subtree) +
                                small(enumerated_tag, never_follow) + small(integer_tag, no_limit) +
                                small(integer_tag, no_limit) + small(boolean_tag, no) + filter_of(search) +
                                element(sequence_tag, attributes);
  return element(sequence_tag, small(integer_tag, message_number) + element(search_tag, operation));
}

std::optional<LdapMessage> parse_message(std::string_view bytes) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  if (bytes.size() < 2) return {};
  if (byte(0) != sequence_tag) return LdapMessage{};
  std::size_t at = 2, size = byte(1);
  if (size >= 128) {
    const std::size_t digits = size - 128;
    if (digits > 4) return LdapMessage{};
    if (bytes.size() < at + digits) return {};
    for (size = 0; at < 2 + digits; ++at) size = size << 8 | byte(at);
  }
  // Then come the message number and the operation.
  if (bytes.size() < at + 2 || bytes.size() < at + 3 + byte(at + 1)) return {};
  return LdapMessage{at + size, byte(at + 2 + byte(at + 1))};
}

LdapReader::LdapReader(int port) : socket_(port) {
  if (socket_.get() < 0) fail("nothing listens on port " + std::to_string(port));
}

void LdapReader::receive() {
  std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  const ssize_t got = ::recv(socket_.get(), buffer_.get() + end_, buffer_size - end_, 0);
  if (got <= 0) fail("slapd ends the connection");
  end_ += static_cast<std::size_t>(got);
}

LdapMessage LdapReader::receive_start() {
  for (;;) {
    const std::optional<LdapMessage> message = parse_message({buffer_.get() + begin_, end_ - begin_});
    if (message && (message->size == 0 || message->size > buffer_size)) fail("slapd sends no message of LDAP");
    if (message) return *message;
    receive();
  }
}

std::uint64_t LdapReader::ask(const LdapSearch &search) {
  if (!send_all(socket_.get(), encode(search))) fail("cannot send a search");
  for (std::uint64_t entries = 0;;) {
    const LdapMessage message = receive_start();
    while (end_ - begin_ < message.size) receive();
    begin_ += message.size;
    if (message.operation == ldap_done) return entries;
    entries += message.operation == ldap_entry ? 1 : 0;
  }
}

}  // namespace rdm::bench
