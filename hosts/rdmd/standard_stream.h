// SPDX-License-Identifier: MIT
/// The C streams of standard output and standard error, written without waiting for whoever reads them.
///
/// The plug-in's diagnostic log, and all that prints, goes through these streams. A pipe that nobody reads would stop
/// the one thread that calls the plug-in, and with it the service.
#ifndef HOSTS_RDMD_STANDARD_STREAM_H
#define HOSTS_RDMD_STANDARD_STREAM_H

#include <cstdio>
#include <mutex>
#include <string>

#include "hosts/common/log_file.h"

namespace rdm::rdmd {

class StandardStream {
 public:
  /// Puts a stream that writes through a LogFile into the place of `stream`, which is stdout or stderr, until the end
  /// of its scope. Where no other thread runs yet. `dropped` reports lines that could not be written to another log;
  /// without it a line of the stream itself does. Throws std::bad_alloc.
  StandardStream(FILE *&stream, host_fd descriptor, hosts::LogFile::Notice dropped);
  StandardStream(FILE *&stream, host_fd descriptor);
  StandardStream(const StandardStream &) = delete;
  StandardStream &operator=(const StandardStream &) = delete;
  ~StandardStream();

 private:
  void install();
  bool say_dropped(std::size_t lines);
  void take(std::string_view text);

  FILE *&place_;
  FILE *const original_;
  hosts::LogFile log_;
  std::mutex mutex_;  // of line_; threads that print at once hold the C stream's lock, which no tool can see
  std::string line_;  // whose end is still to come
};

}  // namespace rdm::rdmd

#endif
