// SPDX-License-Identifier: MIT
/// A client that reads as fast as it can, so that it measures the server.
#ifndef BENCH_SPEED_READER_H
#define BENCH_SPEED_READER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "loopback.h"

namespace rdm::bench {

/// Reader asks a server over one connection that is kept. It reads into a fixed buffer.
class Reader {
 public:
  using Sink = std::function<void(std::string_view)>;

  explicit Reader(int port) : port_(port) {}

  /// connect makes the connection if there is none or if the server has closed it. Throws std::runtime_error if the
  /// server does not listen.
  void connect();
  /// ask sends a request on the connection and reads the answer, whose body goes to `sink` piece by piece; without a
  /// sink it is dropped. Returns the size of the body. Throws std::runtime_error unless the answer is 200 and complete.
  std::uint64_t ask(const std::string &target, const Sink &sink = {});
  /// save writes the body of the answer to a file.
  void save(const std::string &target, const std::string &path);

 private:
  static constexpr std::size_t buffer_size = std::size_t{256} * 1024;

  /// receive returns the next bytes of the connection, which stay valid until the next call.
  std::string_view receive();

  int port_;
  Socket socket_;
  std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(buffer_size);
};

}  // namespace rdm::bench

#endif
