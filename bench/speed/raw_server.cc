// SPDX-License-Identifier: MIT
#include "speed/raw_server.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <vector>

#include "dba/guard.h"
#include "dba/index_format.h"
#include "loopback.h"
#include "site.h"
#include "support/files.h"

namespace rdm::bench {
namespace {

/// Output collects what goes to a socket in pieces of 64 KiB.
class Output {
 public:
  explicit Output(int fd) : fd_(fd) { pending_.reserve(limit); }
  void add(std::string_view bytes) {
    if (pending_.size() + bytes.size() > limit) flush();
    pending_ += bytes;
  }
  void flush() {
    if (!send_all(fd_, pending_)) fail("the client has gone");
    pending_.clear();
  }

 private:
  static constexpr std::size_t limit = 65536;
  int fd_;
  std::string pending_;
};

class Records {
 public:
  Records(std::string database, const std::string &index) : database_(std::move(database)) {
    const std::string bytes = support::read_file(index);
    for (std::size_t i = 0; i < index_format::entry_count(bytes); ++i)
      entries_.push_back(index_format::entry_at(bytes, i));
  }

  void send(int fd, std::size_t first) const {
    std::uint64_t size = 0;
    for (std::size_t i = first; i < entries_.size(); ++i) size += entries_[i].size;
    Output output(fd);
    output.add("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    const DatabasePtr db(::dbopen(database_.c_str(), O_RDONLY, 0, DB_HASH, nullptr));
    if (!db) fail("cannot open " + database_);
    for (std::size_t i = first; i < entries_.size(); ++i) output.add(record(*db, entries_[i].number));
    output.flush();
  }

 private:
  static std::string_view record(DB &db, std::uint32_t number) {
    char name[9];
    std::snprintf(name, sizeof name, "%08x", number);
    DBT key{name, 8}, value{};
    if (db.get(&db, &key, &value, 0) != 0) fail(std::string("no record ") + name);
    return {static_cast<const char *>(value.data), value.size};
  }

  std::string database_;
  std::vector<index_format::Entry> entries_;
};

/// serve answers the requests of one connection. A request comes in one piece.
void serve(const Records &records, int connection) {
  char request[4096];
  for (ssize_t got = 0; (got = ::recv(connection, request, sizeof request - 1, 0)) > 0;) {
    request[got] = '\0';
    records.send(connection, std::strtoul(request + sizeof "GET /" - 1, nullptr, 10));
  }
}

[[noreturn]] void serve_all(const Records &records, int listening) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) try {
      const int connection = ::accept(listening, nullptr, nullptr);
      serve(records, connection);
      ::close(connection);
    } catch (const std::exception &error) {
      std::fprintf(stderr, "raw server: %s\n", error.what());
      ::_exit(1);
    }
}

}  // namespace

RawServer::RawServer(const std::string &database, const std::string &index) {
  const Records records(database, index);
  const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0, 0);
  socklen_t size = sizeof address;
  if (::bind(listening, reinterpret_cast<const sockaddr *>(&address), size) != 0 || ::listen(listening, 16) != 0 ||
      ::getsockname(listening, reinterpret_cast<sockaddr *>(&address), &size) != 0)
    fail("the raw server cannot listen");
  port_ = ntohs(address.sin_port);
  process_ = ::fork();
  if (process_ == 0) serve_all(records, listening);
  ::close(listening);
}

RawServer::~RawServer() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace rdm::bench
