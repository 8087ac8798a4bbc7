// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/proxy_header.h"

#include <string>
#include <variant>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::parse_proxy_header;
using rdmd::ProxyHeader;
using rdmd::ProxyHeaderMalformed;
using rdmd::ProxyHeaderResult;
using rdmd::ProxyHeaderUnfinished;

/// described returns "unfinished", "malformed", or the size of the header and its client.
std::string described(const std::string &bytes) {
  const ProxyHeaderResult result = parse_proxy_header(bytes);
  if (std::holds_alternative<ProxyHeaderUnfinished>(result)) return "unfinished";
  if (std::holds_alternative<ProxyHeaderMalformed>(result)) return "malformed";
  const auto &header = std::get<ProxyHeader>(result);
  return std::to_string(header.size) + " " + (header.client ? header.client->text() : "none");
}

/// expect_from_any_prefix checks that every prefix of a header is unfinished, and that bytes after it change nothing.
void expect_from_any_prefix(const std::string &header, const std::string &client) {
  const std::string whole = std::to_string(header.size()) + " " + client;
  for (std::size_t size = 0; size < header.size(); ++size)
    EXPECT_EQ(described(header.substr(0, size)), "unfinished") << size << " of " << header;
  EXPECT_EQ(described(header), whole) << header;
  EXPECT_EQ(described(header + "GET / HTTP/1.1\r\n\r\n"), whole) << header;
  EXPECT_EQ(described(header + header), whole) << header;
}

TEST(ProxyHeaders, Version1NamesTheClient) {
  const std::pair<std::string, std::string> cases[] = {
      {"PROXY TCP4 192.0.2.1 198.51.100.2 56324 443\r\n", "192.0.2.1"},
      {"PROXY TCP4 255.255.255.255 255.255.255.255 65535 65535\r\n", "255.255.255.255"},
      {"PROXY TCP4 0.0.0.0 0.0.0.0 0 0\r\n", "0.0.0.0"},
      {"PROXY TCP6 2001:db8::1 2001:db8::2 56324 443\r\n", "2001:db8::1"},
      {"PROXY TCP6 ::ffff:192.0.2.1 ::1 1 2\r\n", "192.0.2.1"},
      {"PROXY TCP6 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff 65535 65535\r\n",
       "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {"PROXY UNKNOWN\r\n", "none"},
      {"PROXY UNKNOWN ffff::1 anything 1 2\r\n", "none"},
  };
  for (const auto &[header, client] : cases) expect_from_any_prefix(header, client);
}

TEST(ProxyHeaders, Version1IsStrict) {
  const std::string cases[] = {
      "GET / HTTP/1.1\r\n",
      "proxy UNKNOWN\r\n",
      "PROXY\r\n",
      "PROXY  TCP4 192.0.2.1 198.51.100.2 1 2\r\n",
      "PROXY TCP4  192.0.2.1 198.51.100.2 1 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1 2 \r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1 2 3\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2\r\n",
      "PROXY TCP4\r\n",
      "PROXY TCP4 \r\n",
      "PROXY \r\n",
      "PROXY TCP4 192.0.2.01 198.51.100.2 1 2\r\n",
      "PROXY TCP4 192.0.2.256 198.51.100.2 1 2\r\n",
      "PROXY TCP4 192.0.2 198.51.100.2 1 2\r\n",
      "PROXY TCP4 192.0.2.1 host 1 2\r\n",
      "PROXY TCP4 2001:db8::1 2001:db8::2 1 2\r\n",
      "PROXY TCP6 192.0.2.1 198.51.100.2 1 2\r\n",
      "PROXY TCP6 [2001:db8::1] 2001:db8::2 1 2\r\n",
      "PROXY TCP6 fe80::1%lo 2001:db8::2 1 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 65536 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1 65536\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 01 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 +1 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 -1 2\r\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1 2\n",
      "PROXY TCP4 192.0.2.1 198.51.100.2 1 2\r\r\n",
      "PROXY TCP4 192.0.2.1\r198.51.100.2 1 2\r\n",
      "PROXY TCP4 192.0.2.1\t198.51.100.2 1 2\r\n",
      "PROXY UDP4 192.0.2.1 198.51.100.2 1 2\r\n",
      "PROXY UNKNOWNS 192.0.2.1 198.51.100.2 1 2\r\n",
      "PROXY unknown\r\n",
      std::string("PROXY TCP4 192.0.2.1\0 198.51.100.2 1 2\r\n", 40),
      "PROXY UNKNOWN " + std::string(92, 'x') + "\r\n",
      "PROXY UNKNOWN " + std::string(93, 'x'),
  };
  for (const std::string &header : cases) EXPECT_EQ(described(header), "malformed") << header;
  expect_from_any_prefix("PROXY UNKNOWN " + std::string(91, 'x') + "\r\n", "none");
}

TEST(ProxyHeaders, Version1IsRefusedAsSoonAsItCannotBeCompleted) {
  EXPECT_EQ(described("X"), "malformed");
  EXPECT_EQ(described("PROXZ"), "malformed");
  EXPECT_EQ(described("PROXY UNKNOWN\rX"), "malformed");
  EXPECT_EQ(described("PROXY UNKNOWN" + std::string(93, 'x')), "malformed");
}

/// v2 returns a header of version 2: command and family, and the bytes after the length.
std::string v2(int command, int family, const std::string &rest) {
  std::string header("\r\n\r\n\0\r\nQUIT\n", 12);
  for (const std::size_t byte :
       {static_cast<std::size_t>(command), static_cast<std::size_t>(family), rest.size() >> 8, rest.size() & 255})
    header.push_back(static_cast<char>(byte));
  return header + rest;
}

const std::string tcp4("\xc0\x00\x02\x01\xc6\x33\x64\x02\xdc\x04\x01\xbb", 12);
const std::string tcp6 = std::string("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01", 16) +
                         std::string("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x02", 16) + "\xdc\x04\x01\xbb";

TEST(ProxyHeaders, Version2NamesTheClient) {
  const std::string extension(
      "\x04\x00\x03"
      "abc",
      6),
      empty("\x20\x00\x00", 3);
  const std::pair<std::string, std::string> cases[] = {
      {v2(0x21, 0x11, tcp4), "192.0.2.1"},
      {v2(0x21, 0x11, tcp4 + extension + empty), "192.0.2.1"},
      {v2(0x21, 0x21, tcp6), "2001:db8::1"},
      {v2(0x21, 0x21, tcp6 + extension), "2001:db8::1"},
      {v2(0x21, 0x31, std::string(216, 'p')), "none"},
      {v2(0x21, 0x00, ""), "none"},
      {v2(0x21, 0x00, "any bytes"), "none"},
      {v2(0x20, 0x00, ""), "none"},
      {v2(0x20, 0x11, tcp4), "none"},
      {v2(0x20, 0x11, "cut"), "none"},
      {v2(0x21, 0x11,
          tcp4 + std::string("\x04\x0f\xd9", 3) + std::string(4057, 'n') + std::string("\x04\0\x05", 3) + "12345"),
       "192.0.2.1"},
  };
  for (const auto &[header, client] : cases) expect_from_any_prefix(header, client);
}

TEST(ProxyHeaders, Version2IsStrict) {
  const std::string cases[] = {
      v2(0x11, 0x11, tcp4),                               // version 1
      v2(0x31, 0x11, tcp4),                               // version 3
      v2(0x22, 0x11, tcp4),                               // an unknown command
      v2(0x21, 0x12, tcp4),                               // UDP
      v2(0x21, 0x22, tcp6),                               // UDP
      v2(0x21, 0x10, tcp4),                               // no transport
      v2(0x21, 0x41, tcp4),                               // an unknown family
      v2(0x21, 0x11, tcp4.substr(0, 11)),                 // addresses cut
      v2(0x21, 0x11, ""),                                 // no addresses
      v2(0x21, 0x21, tcp4),                               // addresses of the other family
      v2(0x21, 0x31, std::string(215, 'p')),              // paths cut
      v2(0x21, 0x11, tcp4 + "\x04"),                      // an extension cut
      v2(0x21, 0x11, tcp4 + std::string("\x04\x00", 2)),  // an extension cut
      v2(0x21, 0x11,
         tcp4 + std::string("\x04\x00\x04"
                            "abc",
                            6)),                                      // an extension beyond the end
      v2(0x21, 0x00, std::string(4081, 'x')),                         // beyond the limit
      v2(0x21, 0x11, tcp4 + std::string("\x03\x00\x04\0\0\0\0", 7)),  // a wrong checksum
      v2(0x21, 0x11, tcp4 + std::string("\x03\x00\x03\0\0\0", 6)),    // a short checksum
  };
  for (const std::string &header : cases) EXPECT_EQ(described(header), "malformed") << header;
  EXPECT_EQ(described(v2(0x21, 0x00, std::string(4080, 'x'))), "4096 none");
}

TEST(ProxyHeaders, Version2IsRefusedAsSoonAsItCannotBeCompleted) {
  const std::string signature("\r\n\r\n\0\r\nQUIT\n", 12);
  EXPECT_EQ(described(signature.substr(0, 11) + "\r"), "malformed");
  EXPECT_EQ(described(signature + "\x11"), "malformed");
  EXPECT_EQ(described(signature + "\x21\x12"), "malformed");
  EXPECT_EQ(described(signature + "\x21\x11\xff\xff"), "malformed");
  EXPECT_EQ(described("\r\n\r\nGET"), "malformed");
}

TEST(ProxyHeaders, AChecksumMustFit) {
  // CRC-32C of the header with zeros in place of the checksum, by a bitwise computation.
  const auto crc = [](const std::string &bytes) {
    std::uint32_t sum = ~0U;
    for (const char byte : bytes) {
      sum ^= static_cast<std::uint8_t>(byte);
      for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ ((sum & 1) != 0 ? 0x82F63B78U : 0);
    }
    return ~sum;
  };
  ASSERT_EQ(crc("123456789"), 0xE3069283U);
  std::string header = v2(0x21, 0x11, tcp4 + std::string("\x03\x00\x04\0\0\0\0", 7) + std::string("\x04\0\0", 3));
  const std::uint32_t sum = crc(header);
  for (int i = 0; i < 4; ++i) header[16 + 12 + 3 + i] = static_cast<char>(sum >> (24 - 8 * i));
  expect_from_any_prefix(header, "192.0.2.1");
  for (const std::size_t at : {18U, 31U, 37U}) {
    std::string wrong = header;
    wrong[at] = static_cast<char>(wrong[at] ^ 1);
    EXPECT_EQ(described(wrong), "malformed") << at;
  }
}

}  // namespace
