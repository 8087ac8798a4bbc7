// SPDX-License-Identifier: MIT
/// The server as a child process, and HTTP clients on plain sockets.
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

/// The timeout of all waiting in tests, far longer than needed.
inline constexpr std::chrono::milliseconds timeout{60'000};

/// Inherited holds sockets that a process is started with, as descriptors from 3 on, and their names, separated by ":".
struct Inherited {
  std::vector<int> sockets;
  std::string names;
};

/// tested_workers returns the number of worker processes of servers for which a test does not choose it: the value of
/// the environment variable RDM_TESTED_WORKERS, "0" by default.
std::string tested_workers();

/// RdmdProcess runs rdmd with the given arguments and, unless `descriptors` is 0, with that limit of open files.
/// Without --workers among the arguments, it has tested_workers() of them. The destructor stops it if it still runs,
/// and expects exit status 0, so that sanitizers can report and coverage is written.
class RdmdProcess {
 public:
  explicit RdmdProcess(const std::vector<std::string> &arguments, unsigned descriptors = 0,
                       const Inherited &inherited = {});
  RdmdProcess(const RdmdProcess &) = delete;
  RdmdProcess &operator=(const RdmdProcess &) = delete;
  ~RdmdProcess();

  /// port waits for the line with the listening addresses and returns the last port. Returns 0 and fails the test if
  /// the process ends without one.
  int port();
  /// admin_port does the same for the line with the address of the administration endpoint.
  int admin_port();
  pid_t pid() const { return pid_; }
  /// children returns its children of this name, such as "rdmd-worker".
  std::vector<pid_t> children(const std::string &name) const;
  /// front returns the process that owns the connections: this one, or its child of that name, which has the name a
  /// moment after the server is ready.
  pid_t front() const;
  /// cpu_time returns the CPU time of all threads of the front, open_files the number of its descriptors.
  std::chrono::nanoseconds cpu_time() const;
  std::size_t open_files() const;
  /// temporary_files returns the number of unlinked files it has open, own_memory its RssAnon in bytes.
  std::size_t temporary_files() const;
  std::size_t own_memory() const;
  void signal(int number) const;
  /// wait waits for the process to end and returns the exit status, or 128 + N if signal N ended it.
  int wait();
  /// output and errors return what has been written so far; after wait, everything.
  std::string output();
  std::string errors();
  /// await_error waits until the error output contains `text`.
  bool await_error(const std::string &text);

 private:
  void collect(int fd, std::string &into);
  int announced_port(const std::string &announcement);
  bool has_ended() const;
  /// in_proc returns the path of a file in the directory of the front in /proc.
  std::string in_proc(const std::string &name) const;
  /// end sends SIGTERM, again if the server waits for clients, and then SIGKILL. Returns the exit status.
  int end();

  pid_t pid_ = -1;
  bool has_workers_ = false;
  bool ended_ = false;
  int status_ = 0;
  std::mutex mutex_;
  std::string output_, errors_;
  std::thread output_reader_, error_reader_;
};

/// ReservedPort is a free port of 127.0.0.1 that the system gives to nobody during its lifetime. A server can listen on
/// it.
class ReservedPort {
 public:
  ReservedPort();
  ReservedPort(const ReservedPort &) = delete;
  ReservedPort &operator=(const ReservedPort &) = delete;
  ~ReservedPort();

  int number() const { return number_; }
  /// address returns it as options of the server take it.
  std::string address() const;

 private:
  int socket_;
  int number_ = 0;
};

struct HttpResponse {
  int status = 0;
  std::string reason;
  std::string head;                           // as received, with the empty line
  std::map<std::string, std::string> fields;  // by lower-case name
  std::string body;

  /// field returns a field by its lower-case name, or an empty string.
  std::string field(const std::string &name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? "" : found->second;
  }
};

/// HttpClient is one connection to a server on the loopback interface, or on a Unix socket.
class HttpClient {
 public:
  explicit HttpClient(int port, bool ipv6 = false, int receive_buffer = 0);
  /// Connects to a Unix socket.
  explicit HttpClient(const std::string &path);
  /// Connects from an address of the loopback network, such as "127.0.0.2".
  HttpClient(const std::string &from, int port);
  HttpClient(const HttpClient &) = delete;
  HttpClient &operator=(const HttpClient &) = delete;
  virtual ~HttpClient();

  void send(const std::string &bytes);
  /// finish_sending calls shutdown(SHUT_WR).
  void finish_sending();
  /// receive reads one response. Its body has the declared length or, without one, ends with the connection. If
  /// `head_only`, no body is read. Status 0: the connection ended before the head did.
  HttpResponse receive(bool head_only = false);
  /// receive_head reads up to and including the next empty line.
  std::string receive_head();
  /// receive_rest reads until the server closes the connection.
  std::string receive_rest();
  /// ended waits for the server to close the connection. Returns false if it sends something instead, or on a timeout.
  bool ended();
  /// readable returns true if input, or the end of the connection, arrives within `time`.
  bool readable(std::chrono::milliseconds time);
  /// await_read waits until the server has read all that was sent, by TCP and IPv4.
  bool await_read() const;
  int descriptor() const { return fd_; }

 protected:
  /// put and get send and receive bytes as send() and recv() do. has_input returns true if get returns at once bytes
  /// that the socket has delivered before.
  virtual ssize_t put(const char *bytes, std::size_t count);
  virtual ssize_t get(char *block, std::size_t size);
  virtual bool has_input() const { return false; }

 private:
  bool fill();

  int fd_ = -1;
  std::string pending_;
};

/// http_get sends one GET on a new connection.
HttpResponse http_get(int port, const std::string &target);

/// refuses returns true if no connection to a port of 127.0.0.1 can be made.
bool refuses(int port);

/// eventually waits until `condition` returns true. Returns false if it does not within `time`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds time = timeout) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace rdm::support

#endif
