// SPDX-License-Identifier: MIT
/// Requests that are refused because two readers could understand them differently, or because they exceed a limit.
#ifndef TESTS_HOSTS_RDMD_FRONT_REFUSED_REQUESTS_H
#define TESTS_HOSTS_RDMD_FRONT_REFUSED_REQUESTS_H

#include <cstddef>
#include <string>
#include <vector>

namespace rdm::support {

struct RefusedRequest {
  std::string text;
  int status;
  std::string answer;
};

/// refused_requests returns the requests for a server with these limits on the bytes of a target and of a head. Each is
/// refused at its last byte or before.
inline std::vector<RefusedRequest> refused_requests(std::size_t target_limit, std::size_t head_limit) {
  constexpr const char *not_http = "This is not an HTTP/1 request.\n";
  constexpr const char *malformed = "The request head is malformed.\n";
  constexpr const char *two_lengths = "The request has two different lengths.\n";
  constexpr const char *bad_length = "The Content-Length is malformed or contradicted.\n";
  constexpr const char *both = "Content-Length and Transfer-Encoding exclude each other.\n";
  constexpr const char *encoded = "A Content-Length is required; Transfer-Encoding is not accepted.\n";
  const std::string get = "GET / HTTP/1.1\r\nHost: h\r\n", post = "POST / HTTP/1.1\r\nHost: h\r\n";
  return {
      // Refused before the head is complete.
      {"hello\r\n", 400, not_http},
      {"hello\n", 400, not_http},
      {"\x16\x03\x01\x02", 400, not_http},
      {"GET /\r\n", 400, not_http},
      {"GET / HTTP/2.0\r\n", 400, not_http},
      {"GET / HTTP/0.9\r\n", 400, not_http},
      {"GET / HTTP/1.2\r\n", 400, not_http},
      {"GET / http/1.1\r\n", 400, not_http},
      {"GET / HTTP/1.1 \r\n", 400, not_http},
      {"GET / HTTP/1.1\n", 400, not_http},
      {"G(T / HTTP/1.1\r\n", 400, not_http},
      {" GET / HTTP/1.1\r\n", 400, not_http},
      {"\rGET / HTTP/1.1\r\n", 400, not_http},
      {"\nGET / HTTP/1.1\r\n", 400, not_http},
      {std::string(33, 'A'), 400, not_http},
      {get + "X: y\n", 400, not_http},
      {"GET " + std::string(target_limit + 11, 'x'), 414, "The request target is too long.\n"},
      {"GET /" + std::string(target_limit, 'x') + " HTTP/1.1\r\n", 414, "The request target is too long.\n"},
      {get + "X: " + std::string(head_limit, 'x'), 431, "The request head is too long.\n"},
      {get + "X: " + std::string(head_limit - get.size() - 6, 'x') + "\r\n\r\n", 431,
       "The request head is too long.\n"},
      // Refused once the head is complete.
      {"GET  / HTTP/1.1\r\nHost: h\r\n\r\n", 400, malformed},
      {"GET /a b HTTP/1.1\r\nHost: h\r\n\r\n", 400, malformed},
      {"GET /\x01 HTTP/1.1\r\nHost: h\r\n\r\n", 400, malformed},
      {get + "no colon\r\n\r\n", 400, malformed},
      {get + "X : blank before the colon\r\n\r\n", 400, malformed},
      {get + " X: begins with a blank\r\n\r\n", 400, malformed},
      {get + "X: a\r\n folded\r\n\r\n", 400, malformed},
      {get + "X: a\r\n\tfolded\r\n\r\n", 400, malformed},
      {get + ": no name\r\n\r\n", 400, malformed},
      {get + "X: a\rb\r\n\r\n", 400, malformed},
      {get + "X: a" + std::string(1, '\0') + "b\r\n\r\n", 400, malformed},
      {get + "X\x80: a\r\n\r\n", 400, malformed},
      {post + "Content-Length: 5\r\nContent-Length: 6\r\n\r\n", 400, two_lengths},
      {post + "Content-Length: 5, 6\r\n\r\n", 400, two_lengths},
      {post + "Content-Length: -1\r\n\r\n", 400, bad_length},
      {post + "Content-Length: +1\r\n\r\n", 400, bad_length},
      {post + "Content-Length: 0x10\r\n\r\n", 400, bad_length},
      {post + "Content-Length: 1 2\r\n\r\n", 400, bad_length},
      {post + "Content-Length:\r\n\r\n", 400, bad_length},
      {post + "Content-Length: 18446744073709551616\r\n\r\n", 400, bad_length},
      {post + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n", 400, both},
      {post + "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n", 400, bad_length},
      {post + "Content-Length: 5\r\nTransfer-Encoding: identity\r\n\r\n", 400, both},
      {post + "Transfer-Encoding: gzip\r\nContent-Length: 5\r\n\r\n", 400, both},
      {post + "Transfer-Encoding: chunked\r\n\r\n", 411, encoded},
      {post + "Transfer-Encoding: gzip, chunked\r\n\r\n", 411, encoded},
      {post + "Transfer-Encoding: xchunked\r\n\r\n", 411, encoded},
      {post + "Transfer-Encoding:\r\n\r\n", 411, encoded},
      {post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n", 400, both},
      {"POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n", 411, encoded},
      {"GET / HTTP/1.1\r\n\r\n", 400, "An HTTP/1.1 request requires a Host field.\n"},
      {get + "Host: other\r\n\r\n", 400, "A request has one Host field.\n"},
      {"GET / HTTP/1.0\r\nHost: a\r\nHost: b\r\n\r\n", 400, "A request has one Host field.\n"},
      {"GET / HTTP/1.1\r\nHost: a/../@b c\r\n\r\n", 400, "The Host field is malformed.\n"},
      {"GET / HTTP/1.0\r\nHost: a b\r\n\r\n", 400, "The Host field is malformed.\n"},
      {"GET / HTTP/1.1\r\nHost: a:99999999\r\n\r\n", 400, "The Host field is malformed.\n"},
      {post + "Expect: a miracle\r\n\r\n", 417, "Only 100-continue can be expected.\n"},
  };
}

}  // namespace rdm::support

#endif
