// SPDX-License-Identifier: MIT
/// The server's memory per connection. Not built with sanitizers, which keep freed memory.

#include <unistd.h>

#include <algorithm>
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

  /// expect_each expects that after `use` was called for each of `count` connections, each soon holds less than `limit`
  /// bytes: what requests have freed is returned a while later. `connect` makes a connection.
  template <typename Connect, typename Use>
  void expect_each(int count, std::size_t limit, Connect connect, Use use) {
    std::vector<decltype(connect())> clients;
    const auto add = [&](int more) {
      for (int i = 0; i < more; ++i) use(*clients.emplace_back(connect()));
    };
    add(20);
    const std::size_t before = server_->own_memory();
    add(count);
    const auto each = [&] {
      return (std::max(server_->own_memory(), before) - before) / static_cast<std::size_t>(count);
    };
    EXPECT_TRUE(support::eventually([&] { return each() < limit; })) << each() << " bytes each";
  }

  auto plain() const {
    return [this] { return std::make_unique<HttpClient>(port_, false, 4096); };
  }
};

TEST_F(HostFootprint, AnIdleConnectionHoldsLessThan8Kib) {
  // Regression: the connection kept a read buffer and the memory of its largest request: 97 KiB.
  start({"--idle-timeout", "600"});
  const std::string post = request(1000);
  expect_each(400, 8192, plain(), [&](HttpClient &client) {
    client.send(post);
    EXPECT_EQ(client.receive().body.size(), 1000U);
  });
}

TEST_F(HostFootprint, AConnectionWhoseClientReadsNothingHoldsLessThan16Kib) {
  // Regression: the connection kept head and body of the request until the client had taken the answer: 97 KiB.
  start({"--write-timeout", "600"});
  const std::string post = request(2'000'000);
  expect_each(200, 16384, plain(), [&](HttpClient &client) {
    client.send(post);
    EXPECT_TRUE(client.readable(support::timeout));
  });
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

  auto tls() const {
    return [this] { return std::make_unique<support::TlsClient>(port_, 0, "", nullptr, 4096); };
  }
};

TEST_F(HostTlsFootprint, AnIdleConnectionHoldsLessThan24Kib) {
  start_tls({"--idle-timeout", "600"});
  const std::string post = request(1000);
  expect_each(200, 24576, tls(), [&](HttpClient &client) {
    client.send(post);
    EXPECT_EQ(client.receive().body.size(), 1000U);
  });
}

TEST_F(HostTlsFootprint, AConnectionWhoseClientReadsNothingHoldsLessThan56Kib) {
  start_tls({"--write-timeout", "600"});
  const std::string post = request(2'000'000);
  expect_each(100, 57344, tls(), [&](HttpClient &client) {
    client.send(post);
    EXPECT_TRUE(client.readable(support::timeout));
  });
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
