// SPDX-License-Identifier: MIT
/// The server as a child process, and clients that speak to it over bare sockets.
#ifndef TESTS_HOSTS_RDMD_RDMD_PROCESS_H
#define TESTS_HOSTS_RDMD_RDMD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rdm::support {

/// How long anything may take before a test gives it up; far longer than it does take.
inline constexpr std::chrono::milliseconds patience{60'000};

/// RdmdProcess is an rdmd that runs with the given arguments, and may open `descriptors` files where that is not 0. At
/// the end of its scope it is stopped if it still runs, and must end in order: then sanitizers have the last word on
/// it, and what it reached is counted.
class RdmdProcess {
 public:
  explicit RdmdProcess(const std::vector<std::string> &arguments, unsigned descriptors = 0);
  RdmdProcess(const RdmdProcess &) = delete;
  RdmdProcess &operator=(const RdmdProcess &) = delete;
  ~RdmdProcess();

  /// port waits for the line that says where the server listens and returns its port; 0, and a failed test, when the
  /// process ends without one.
  int port();
  pid_t pid() const { return pid_; }
  /// cpu_time is the time that its threads have run; open_files the number of its descriptors.
  std::chrono::nanoseconds cpu_time() const;
  std::size_t open_files() const;
  /// temporary_files is how many of its descriptors are of files without a name; own_memory how many bytes of memory
  /// it has to itself.
  std::size_t temporary_files() const;
  std::size_t own_memory() const;
  void signal(int number) const;
  /// wait waits for the end and returns the exit status, 128 + N when signal N ended it.
  int wait();
  /// output and errors are what was written so far; after wait, all of it.
  std::string output();
  std::string errors();
  /// await_error waits until the error output holds `text`.
  bool await_error(const std::string &text);

 private:
  void collect(int fd, std::string &into);
  bool has_ended() const;
  std::string in_proc(const std::string &name) const;
  /// end tells the server to stop, and once more if it waits for its clients, before it kills it. The exit status.
  int end();

  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
  std::mutex mutex_;
  std::string output_, errors_;
  std::thread output_reader_, error_reader_;
};

struct HttpResponse {
  int status = 0;
  std::string reason;
  std::string head;                           // as received, with the empty line
  std::map<std::string, std::string> fields;  // by lower-case name
  std::string body;

  /// field returns a field by its lower-case name, empty when absent.
  std::string field(const std::string &name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? "" : found->second;
  }
};

/// HttpClient is one connection to a server on the loopback interface.
class HttpClient {
 public:
  explicit HttpClient(int port, bool ipv6 = false, int receive_buffer = 0);
  HttpClient(const HttpClient &) = delete;
  HttpClient &operator=(const HttpClient &) = delete;
  ~HttpClient();

  void send(const std::string &bytes);
  /// finish_sending says that nothing more will come, as shutdown does.
  void finish_sending();
  /// receive reads one response; its body is as long as announced, or, without a length, all until the end of the
  /// connection. With `head_only` no body is read. Status 0 when the connection ends before the head does.
  HttpResponse receive(bool head_only = false);
  /// receive_head reads up to and with the next empty line.
  std::string receive_head();
  /// receive_rest reads until the server closes the connection.
  std::string receive_rest();
  /// ended waits for the server to close the connection; false when it sends something instead or takes too long.
  bool ended();
  /// readable tells whether something, or the end, arrives within `time`.
  bool readable(std::chrono::milliseconds time);
  int descriptor() const { return fd_; }

 private:
  bool fill();

  int fd_ = -1;
  std::string pending_;
};

/// http_get is one GET on a connection of its own.
HttpResponse http_get(int port, const std::string &target);

/// eventually waits until `condition` holds; false when it does not within `time`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds time = patience) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace rdm::support

#endif
