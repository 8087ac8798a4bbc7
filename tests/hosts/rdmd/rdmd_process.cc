// SPDX-License-Identifier: MIT
#include "hosts/rdmd/rdmd_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"

namespace rdm::support {
namespace {

struct Pipe {
  int read_end = -1;
  int write_end = -1;
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == 0) {
      read_end = ends[0];
      write_end = ends[1];
    }
  }
};

[[noreturn]] void become(const std::vector<std::string> &arguments) {
  std::vector<char *> argv;
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(argv[0], argv.data());
  ::_exit(127);
}

/// pass_on makes the sockets descriptors from 3 on of the calling process, and names them in its environment.
void pass_on(const Inherited &inherited) {
  if (inherited.sockets.empty()) return;
  std::vector<int> copies;
  for (const int socket : inherited.sockets) copies.push_back(::fcntl(socket, F_DUPFD_CLOEXEC, 100));
  int target = 3;
  for (const int copy : copies) ::dup2(copy, target++);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv("LISTEN_FDS", std::to_string(copies.size()).c_str(), 1);
  ::setenv("LISTEN_FDNAMES", inherited.names.c_str(), 1);
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

void parse_head(HttpResponse &response) {
  std::size_t at = response.head.find("\r\n");
  const std::string first = response.head.substr(0, at);
  if (first.size() < 12) return;
  response.status = static_cast<int>(std::strtol(first.c_str() + 9, nullptr, 10));
  response.reason = first.size() > 13 ? first.substr(13) : "";
  while (at + 4 < response.head.size()) {
    at += 2;
    const std::size_t end = response.head.find("\r\n", at);
    const std::string line = response.head.substr(at, end - at);
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos) response.fields[lower(line.substr(0, colon))] = line.substr(colon + 2);
    at = end;
  }
}

/// name_of returns the name of a process, or an empty string if it has ended meanwhile.
std::string name_of(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// address_of returns the address of an end of a TCP connection as /proc/net/tcp has it.
std::string address_of(int fd, int (*name)(int, sockaddr *, socklen_t *)) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(name(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
  char text[14];
  std::snprintf(text, sizeof text, "%08X:%04X", address.sin_addr.s_addr, ntohs(address.sin_port));
  return text;
}

}  // namespace

std::string tested_workers() {
  const char *const workers = std::getenv("RDM_TESTED_WORKERS");
  return workers != nullptr ? workers : "0";
}

RdmdProcess::RdmdProcess(const std::vector<std::string> &arguments, unsigned descriptors, const Inherited &inherited) {
  std::vector<std::string> all = {in_build("bin/rdmd")};
  all.insert(all.end(), arguments.begin(), arguments.end());
  if (std::find(all.begin(), all.end(), "--workers") == all.end())
    all.insert(all.end(), {"--workers", tested_workers()});
  has_workers_ = *std::next(std::find(all.begin(), all.end(), "--workers")) != "0";
  const Pipe output, errors;
  pid_ = ::fork();
  if (pid_ == 0) {
    const struct rlimit limit = {descriptors, descriptors};
    if (descriptors > 0) ::setrlimit(RLIMIT_NOFILE, &limit);
    ::dup2(output.write_end, STDOUT_FILENO);
    ::dup2(errors.write_end, STDERR_FILENO);
    pass_on(inherited);
    become(all);
  }
  ::close(output.write_end);
  ::close(errors.write_end);
  output_reader_ = std::thread([this, fd = output.read_end] { collect(fd, output_); });
  error_reader_ = std::thread([this, fd = errors.read_end] { collect(fd, errors_); });
}

RdmdProcess::~RdmdProcess() {
  if (ended_) return;
  EXPECT_EQ(end(), 0) << errors();
}

bool RdmdProcess::has_ended() const {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid_;
}

int RdmdProcess::end() {
  const auto has_ended_within = [this](std::chrono::milliseconds time) {
    return eventually([this] { return has_ended(); }, time);
  };
  signal(SIGTERM);
  if (!has_ended_within(std::chrono::seconds(10))) signal(SIGTERM);
  if (!has_ended_within(timeout)) signal(SIGKILL);
  return wait();
}

void RdmdProcess::collect(int fd, std::string &into) {
  char block[4096];
  for (ssize_t got = 0; (got = ::read(fd, block, sizeof block)) > 0 || (got < 0 && errno == EINTR);) {
    const std::lock_guard lock(mutex_);
    if (got > 0) into.append(block, static_cast<std::size_t>(got));
  }
  ::close(fd);
}

std::chrono::nanoseconds RdmdProcess::cpu_time() const {
  clockid_t clock = 0;
  struct timespec time {};
  EXPECT_EQ(::clock_getcpuclockid(front(), &clock), 0);
  EXPECT_EQ(::clock_gettime(clock, &time), 0);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::vector<pid_t> RdmdProcess::children(const std::string &name) const {
  const std::string own = std::to_string(pid_);
  std::istringstream all(read_file("/proc/" + own + "/task/" + own + "/children"));
  std::vector<pid_t> found;
  for (pid_t child = 0; all >> child;)
    if (name_of(child) == name) found.push_back(child);
  return found;
}

pid_t RdmdProcess::front() const {
  if (!has_workers_) return pid_;
  std::vector<pid_t> fronts;
  const bool is_found = eventually([&] { return !(fronts = children("rdmd-front")).empty(); });
  EXPECT_TRUE(is_found) << "there is no front process";
  return is_found ? fronts.front() : pid_;
}

std::string RdmdProcess::in_proc(const std::string &name) const {
  return "/proc/" + std::to_string(front()) + "/" + name;
}

std::size_t RdmdProcess::open_files() const {
  const std::filesystem::directory_iterator files(in_proc("fd"));
  return static_cast<std::size_t>(std::distance(files, std::filesystem::directory_iterator()));
}

std::size_t RdmdProcess::temporary_files() const {
  std::size_t count = 0;
  for (const auto &file : std::filesystem::directory_iterator(in_proc("fd"))) {
    std::error_code closed;
    count += std::filesystem::read_symlink(file, closed).string().ends_with(" (deleted)") ? 1 : 0;
  }
  return count;
}

std::size_t RdmdProcess::own_memory() const {
  const std::string status = read_file(in_proc("status")), name = "RssAnon:";
  return std::strtoul(status.c_str() + status.find(name) + name.size(), nullptr, 10) * 1024;
}

void RdmdProcess::signal(int number) const { ::kill(pid_, number); }

int RdmdProcess::wait() {
  if (ended_) return status_;
  int status = 0;
  ::waitpid(pid_, &status, 0);
  ended_ = true;
  output_reader_.join();
  error_reader_.join();
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return status_;
}

std::string RdmdProcess::output() {
  const std::lock_guard lock(mutex_);
  return output_;
}

std::string RdmdProcess::errors() {
  const std::lock_guard lock(mutex_);
  return errors_;
}

bool RdmdProcess::await_error(const std::string &text) {
  return eventually([&] { return errors().find(text) != std::string::npos; });
}

int RdmdProcess::port() { return announced_port("rdmd: listening on "); }

int RdmdProcess::admin_port() { return announced_port("rdmd: administration on "); }

int RdmdProcess::announced_port(const std::string &announcement) {
  std::string line;
  const bool announced = eventually([&] {
    const std::string text = errors();
    const std::size_t start = text.find(announcement);
    if (start == std::string::npos) return has_ended();
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) return false;
    line = text.substr(start, end - start);
    return true;
  });
  if (!announced || line.empty()) {
    ADD_FAILURE() << "the server did not start: " << errors();
    return 0;
  }
  return static_cast<int>(std::strtol(line.c_str() + line.rfind(':') + 1, nullptr, 10));
}

ReservedPort::ReservedPort() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  // As the server has this option too, it can bind to the address as well.
  constexpr int on = 1;
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket_, reinterpret_cast<const sockaddr *>(&address), size) != 0 ||
      ::getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &size) != 0)
    ADD_FAILURE() << "reserve a port: " << std::strerror(errno);
  number_ = ntohs(address.sin_port);
}

ReservedPort::~ReservedPort() { ::close(socket_); }

std::string ReservedPort::address() const { return "127.0.0.1:" + std::to_string(number_); }

HttpClient::HttpClient(int port, bool ipv6, int receive_buffer) {
  fd_ = ::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (receive_buffer > 0) ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  const sockaddr_in v4 = loopback(port);
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  v6.sin6_port = htons(static_cast<std::uint16_t>(port));
  v6.sin6_addr = in6addr_loopback;
  const auto *address = ipv6 ? reinterpret_cast<const sockaddr *>(&v6) : reinterpret_cast<const sockaddr *>(&v4);
  if (::connect(fd_, address, ipv6 ? sizeof v6 : sizeof v4) != 0) ADD_FAILURE() << "connect: " << std::strerror(errno);
}

HttpClient::HttpClient(const std::string &path) {
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    ADD_FAILURE() << "connect: " << std::strerror(errno);
}

HttpClient::HttpClient(const std::string &from, int port) {
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (::inet_pton(AF_INET, from.c_str(), &address.sin_addr) != 1 ||
      ::bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    ADD_FAILURE() << "bind " << from << ": " << std::strerror(errno);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    ADD_FAILURE() << "connect: " << std::strerror(errno);
}

HttpClient::~HttpClient() { ::close(fd_); }

ssize_t HttpClient::put(const char *bytes, std::size_t count) { return ::send(fd_, bytes, count, MSG_NOSIGNAL); }

ssize_t HttpClient::get(char *block, std::size_t size) { return ::recv(fd_, block, size, 0); }

void HttpClient::send(const std::string &bytes) {
  // The server may have refused the request and closed the connection; the test notices that when it reads.
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t sent = put(bytes.data() + done, bytes.size() - done);
    if (sent <= 0) return;
    done += static_cast<std::size_t>(sent);
  }
}

void HttpClient::finish_sending() { ::shutdown(fd_, SHUT_WR); }

bool HttpClient::await_read() const {
  const std::string server_end = address_of(fd_, ::getpeername) + ' ' + address_of(fd_, ::getsockname) + ' ';
  return eventually([&] {
    int unacknowledged = 0;
    if (::ioctl(fd_, SIOCOUTQ, &unacknowledged) != 0 || unacknowledged != 0) return false;
    const std::string sockets = read_file("/proc/net/tcp");
    const std::size_t found = sockets.find(server_end);
    // The state of the connection and the lengths of its queues follow: "01 00000000:00000000".
    return found != std::string::npos && sockets.compare(found + server_end.size() + 12, 8, "00000000") == 0;
  });
}

bool HttpClient::readable(std::chrono::milliseconds time) {
  pollfd waiting{fd_, POLLIN, 0};
  return !pending_.empty() || has_input() || ::poll(&waiting, 1, static_cast<int>(time.count())) > 0;
}

bool HttpClient::fill() {
  pollfd waiting{fd_, POLLIN, 0};
  if (!has_input() && ::poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) {
    ADD_FAILURE() << "the server sends nothing";
    return false;
  }
  char block[65536];
  const ssize_t got = get(block, sizeof block);
  if (got > 0) pending_.append(block, static_cast<std::size_t>(got));
  return got > 0;
}

std::string HttpClient::receive_head() {
  std::size_t end = 0;
  while ((end = pending_.find("\r\n\r\n")) == std::string::npos)
    if (!fill()) return {};
  std::string head = pending_.substr(0, end + 4);
  pending_.erase(0, end + 4);
  return head;
}

HttpResponse HttpClient::receive(bool head_only) {
  HttpResponse response;
  response.head = receive_head();
  if (response.head.empty()) return response;
  parse_head(response);
  if (head_only) return response;
  const auto length = response.fields.find("content-length");
  if (length == response.fields.end()) {
    response.body = receive_rest();
    return response;
  }
  const std::size_t size = std::strtoul(length->second.c_str(), nullptr, 10);
  while (pending_.size() < size)
    if (!fill()) break;
  response.body = pending_.substr(0, size);
  pending_.erase(0, size);
  return response;
}

std::string HttpClient::receive_rest() {
  while (fill()) continue;
  std::string rest;
  rest.swap(pending_);
  return rest;
}

bool HttpClient::ended() {
  if (!pending_.empty()) return false;
  return !fill() && pending_.empty();
}

HttpResponse http_get(int port, const std::string &target) {
  HttpClient client(port);
  client.send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  return client.receive();
}

bool refuses(int port) {
  const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  const bool is_refused = ::connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0;
  ::close(client);
  return is_refused;
}

}  // namespace rdm::support
