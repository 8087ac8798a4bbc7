// SPDX-License-Identifier: MIT
/// Replacements for stdout and stderr that do not block on a slow reader.
///
/// The plug-in's diagnostic log and all other printing use these streams. A full pipe would block the one thread that
/// calls the plug-in, and with it the service.
#ifndef HOSTS_RDMD_STANDARD_STREAM_H
#define HOSTS_RDMD_STANDARD_STREAM_H

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

#include "hosts/common/log_file.h"

namespace rdm::rdmd {

class StandardStream {
 public:
  /// Replaces `stream`, which is stdout or stderr, until the end of its scope by a stream that writes through a
  /// LogFile. Construct it before other threads start. `dropped` reports dropped lines to another log; without it they
  /// are reported by a line in the stream itself. Throws std::bad_alloc.
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
  std::mutex
      mutex_;  // guards line_; printing threads also hold the C stream's lock, but thread sanitizers cannot see that
  std::string line_;  // the text of an unfinished line
};

/// write_stream writes a text to a stream and flushes it. Returns false on failure.
bool write_stream(FILE *stream, std::string_view text);

}  // namespace rdm::rdmd

#endif
