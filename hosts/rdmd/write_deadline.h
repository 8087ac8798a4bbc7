/// Whether a client still takes its answer, judged by what its system has acknowledged.
///
/// A client that reads slowly acknowledges in steps: nothing at all until a part of its receive buffer is free. One
/// that has gone on after a stall reads, if slowly, and its next stall may be several times as long. So a client that
/// takes nothing is found after 1.75 to 1.9 times the limit, and one that has stalled before after at most 5.1 times.
#ifndef HOSTS_RDMD_WRITE_DEADLINE_H
#define HOSTS_RDMD_WRITE_DEADLINE_H

#include <algorithm>
#include <cstdint>

#include "hosts/rdmd/io.h"
#include "hosts/rdmd/settings.h"

namespace rdmd {

class WriteDeadline {
 public:
  explicit WriteDeadline(Duration limit) : limit_(limit), patience_(limit * 7 / 4) {}

  /// begin starts the time for an answer. `acknowledged` counts the bytes that the client has acknowledged so far.
  void begin(std::int64_t acknowledged, io::Clock::time_point now);
  /// expired tells whether the client has acknowledged nothing for too long, at `now`. To be asked every interval.
  bool expired(std::int64_t acknowledged, io::Clock::time_point now);
  Duration interval() const { return std::max(limit_ / 16, Duration(1)); }

 private:
  Duration limit_;
  io::Clock::duration patience_;
  std::int64_t acknowledged_ = 0;
  io::Clock::time_point since_;  // the client acknowledged something, or the answer began
};

}  // namespace rdmd

#endif
