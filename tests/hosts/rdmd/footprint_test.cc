// SPDX-License-Identifier: MIT
/// The server's memory per connection. Not built with sanitizers, which keep freed memory.

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "hosts/rdmd/server_fixture.h"
#include "hosts/rdmd/tls_support.h"

using namespace rdm;

namespace {

using support::HttpClient;

class HostFootprint : public support::ServerTest {
 protected:
  /// request returns a request with the largest head and body, which the plug-in answers with `size` bytes of a file.
  std::string request(long size) const {
    const std::string file = directory_.write("file" + std::to_string(size), "");
    EXPECT_EQ(::truncate(file.c_str(), size), 0);
    std::string line = "POST /rdm/shared-file?" + file + "&";
    line.resize(8190, 'q');
    std::string fields = " HTTP/1.1\r\nHost: h\r\nContent-Length: 32768\r\nReferer: r\r\nUser-Agent: ";
    fields.resize(16384 - 4 - line.size(), 'u');
    return line + fields + "\r\n\r\n" + std::string(32768, 'b');
  }

  /// each returns the bytes of memory per connection after `use` was called for each of `count` connections.
  template <typename Use>
  std::size_t each(int count, Use use) {
    std::vector<std::unique_ptr<HttpClient>> clients;
    const auto connect = [&] {
      clients.push_back(std::make_unique<HttpClient>(port_, false, 4096));
      use(*clients.back());
    };
    for (int i = 0; i < 20; ++i) connect();
    const std::size_t before = server_->own_memory();
    for (int i = 0; i < count; ++i) connect();
    return (server_->own_memory() - before) / static_cast<std::size_t>(count);
  }
};

TEST_F(HostFootprint, AnIdleConnectionHoldsLessThan8Kib) {
  // Regression: the connection kept a read buffer and the memory of its largest request: 97 KiB.
  start({"--idle-timeout", "600"});
  const std::string post = request(1000);
  EXPECT_LT(each(400,
                 [&](HttpClient &client) {
                   client.send(post);
                   EXPECT_EQ(client.receive().body.size(), 1000U);
                 }),
            8192U);
}

TEST_F(HostFootprint, AConnectionWhoseClientReadsNothingHoldsLessThan16Kib) {
  // Regression: the connection kept head and body of the request until the client had taken the answer: 97 KiB.
  start({"--write-timeout", "600"});
  const std::string post = request(2'000'000);
  EXPECT_LT(each(200,
                 [&](HttpClient &client) {
                   client.send(post);
                   EXPECT_TRUE(client.readable(support::timeout));
                 }),
            16384U);
}

/// Clients by TLS. Much of their memory is OpenSSL's.
class HostTlsFootprint : public HostFootprint {
 protected:
  void start_tls(const std::vector<std::string> &more) {
    const std::string certificate = directory_.path("cert.pem"), key = directory_.path("key.pem");
    support::write_certificate(certificate, key);
    std::vector<std::string> all = {"--tls-listen", "127.0.0.1:0", "--tls-certificate", certificate, "--tls-key", key};
    all.insert(all.end(), more.begin(), more.end());
    start(all);
  }

  /// each_tls returns the bytes of memory per connection after `use` was called for each of `count` connections.
  template <typename Use>
  std::size_t each_tls(int count, Use use) {
    std::vector<std::unique_ptr<support::TlsClient>> clients;
    const auto connect = [&] {
      clients.push_back(std::make_unique<support::TlsClient>(port_, 0, "", nullptr, 4096));
      use(*clients.back());
    };
    for (int i = 0; i < 20; ++i) connect();
    const std::size_t before = server_->own_memory();
    for (int i = 0; i < count; ++i) connect();
    return (server_->own_memory() - before) / static_cast<std::size_t>(count);
  }
};

TEST_F(HostTlsFootprint, AnIdleConnectionHoldsLessThan24Kib) {
  start_tls({"--idle-timeout", "600"});
  const std::string post = request(1000);
  EXPECT_LT(each_tls(200,
                     [&](HttpClient &client) {
                       client.send(post);
                       EXPECT_EQ(client.receive().body.size(), 1000U);
                     }),
            24576U);
}

TEST_F(HostTlsFootprint, AConnectionWhoseClientReadsNothingHoldsLessThan56Kib) {
  start_tls({"--write-timeout", "600"});
  const std::string post = request(2'000'000);
  EXPECT_LT(each_tls(100,
                     [&](HttpClient &client) {
                       client.send(post);
                       EXPECT_TRUE(client.readable(support::timeout));
                     }),
            57344U);
}

TEST_F(HostFootprint, ABurstOfLargeRequestsDoesNotKeepItsMemory) {
  // Regression: after a burst, small blocks of the connections were scattered over the heap, and none of it was
  // returned: 59 KiB each.
  start({"--idle-timeout", "600", "--body-timeout", "600"});
  const std::string post = request(1000), begun = post.substr(0, post.size() - 1);
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (int i = 0; i < 400; ++i) {
    clients.push_back(std::make_unique<HttpClient>(port_, false, 4096));
    clients.back()->send(begun);
  }
  for (const auto &client : clients) {
    client->send("b");
    EXPECT_EQ(client->receive().body.size(), 1000U);
  }
  EXPECT_TRUE(support::eventually([&] { return server_->own_memory() < clients.size() * 30 * 1024; }))
      << server_->own_memory() / clients.size() << " bytes each";
}

}  // namespace
