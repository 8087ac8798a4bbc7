// SPDX-License-Identifier: MIT
/// A fixture that runs the server with the test plug-in.
#ifndef TESTS_HOSTS_RDMD_SERVER_FIXTURE_H
#define TESTS_HOSTS_RDMD_SERVER_FIXTURE_H

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "support/directories.h"
#include "support/files.h"

namespace rdm::support {

class ServerTest : public ::testing::Test {
 protected:
  /// start runs the server with the test plug-in, a free port, an access log and `more` arguments; see RdmdProcess for
  /// `descriptors`. It has two I/O threads unless `more` says otherwise, on any machine.
  void start(const std::vector<std::string> &more = {}, unsigned descriptors = 0) {
    config_ = directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n");
    std::vector<std::string> arguments = {"--listen", "127.0.0.1:0", "--plugin",     plugin(),
                                          "--config", config_,       "--access-log", directory_.path("access")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    if (std::find(more.begin(), more.end(), "--threads") == more.end())
      arguments.insert(arguments.end(), {"--threads", "2"});
    server_ = std::make_unique<RdmdProcess>(arguments, descriptors);
    port_ = server_->port();
  }

  /// start_single is start with one worker, or without worker processes, so that requests are served in turn.
  void start_single(std::vector<std::string> more = {}, unsigned descriptors = 0) {
    more.insert(more.end(), {"--workers", std::min(tested_workers(), std::string("1"))});
    start(more, descriptors);
  }

  /// observed adds an administration endpoint to the arguments of start; await_metric needs it.
  static std::vector<std::string> observed(std::vector<std::string> more = {}) {
    more.insert(more.end(), {"--admin", "127.0.0.1:0"});
    return more;
  }

  /// await_metric waits until the metrics of the server have a sample, such as "rdmd_queue_length 1".
  bool await_metric(const std::string &sample) {
    const int admin = server_->admin_port();
    return eventually([&] { return http_get(admin, "/metrics").body.find("\n" + sample + "\n") != std::string::npos; });
  }
  bool await_queued(int requests) { return await_metric("rdmd_queue_length " + std::to_string(requests)); }

  /// held returns the target of a request that the plug-in serves until release is called with the same name.
  std::string held(const std::string &name = "released", const std::string &path = "/rdm/slow") const {
    return path + "?" + directory_.path(name);
  }
  void release(const std::string &name = "released") const { directory_.write(name, ""); }

  /// begin_held sends a held request and waits until it has been served for so long that no other request goes ahead to
  /// its worker: 10 ms.
  void begin_held(HttpClient &client) const {
    client.send(get(held()));
    EXPECT_TRUE(eventually([this] { return called("service /rdm/slow"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  static std::string plugin() { return in_build("tests/test_plugin.so"); }

  /// stop sends SIGTERM and returns the exit status.
  int stop() {
    server_->signal(SIGTERM);
    return server_->wait();
  }

  /// journal returns the plug-in's journal so far, with the start of one worker; called returns true if it has a line
  /// for `step`.
  std::string journal() const {
    std::string text = read_file(directory_.path("journal"));
    while (text.starts_with("init\ninit\n")) text.erase(0, 5);
    return text;
  }
  bool called(const std::string &step) const { return journal().find("\n" + step) != std::string::npos; }
  std::string access() const { return read_file(directory_.path("access")); }

  /// await_access waits until the access log has `count` lines and returns it.
  std::string await_access(long count) const {
    eventually([&] {
      const std::string text = access();
      return std::count(text.begin(), text.end(), '\n') >= count;
    });
    return access();
  }

  static std::string get(const std::string &target, const std::string &fields = "") {
    return "GET " + target + " HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n";
  }
  static std::string post(const std::string &target, const std::string &body, const std::string &fields = "") {
    return "POST " + target + " HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
           fields + "\r\n" + body;
  }
  /// pattern returns the answer of /rdm/big: numbered lines of eight bytes.
  static std::string pattern(std::size_t size) {
    std::string text(size, '\n');
    for (std::size_t at = 0; at < size; ++at) {
      std::size_t number = at / 8;
      for (std::size_t digit = at % 8; digit < 6; ++digit) number /= 10;
      if (at % 8 != 7) text[at] = static_cast<char>('0' + number % 10);
    }
    return text;
  }

  TemporaryDirectory directory_;
  std::string config_;
  std::unique_ptr<RdmdProcess> server_;
  int port_ = 0;
};

}  // namespace rdm::support

#endif
