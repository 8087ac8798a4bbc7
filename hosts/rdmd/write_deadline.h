// SPDX-License-Identifier: MIT
/// Whether a client still takes its answers, judged by what its system has acknowledged.
///
/// A client that reads slowly acknowledges in steps: nothing at all until a part of its receive buffer is free. One
/// that has gone on after a stall reads, if slowly, and its next stall may be several times as long. So a client that
/// takes nothing is found after 1.75 to 1.9 times the limit, and one that has stalled before after at most 5.1 times.
/// Further answers give it no more time.
///
/// A client with a large receive buffer that reads more slowly than its window reopens looks like one that reads
/// nothing: its system acknowledges nothing until about an eighth of the buffer is free (a quarter of the default
/// 128 KiB). It is cut off if that takes longer than 1.75 times the limit, which is less than twice the limit.
#ifndef HOSTS_RDMD_WRITE_DEADLINE_H
#define HOSTS_RDMD_WRITE_DEADLINE_H

#include <algorithm>
#include <cstdint>

#include "hosts/rdmd/io.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class WriteDeadline {
 public:
  explicit WriteDeadline(Duration limit) : limit_(limit), patience_(limit * 7 / 4) {}

  /// begin notes that more is going to be sent. The time starts if the client has acknowledged all of the bytes `sent`
  /// so far; else it runs on from when the client last acknowledged something.
  void begin(std::int64_t acknowledged, std::int64_t sent, io::Clock::time_point now);
  /// expired tells whether the client has acknowledged nothing for too long, at `now`. To be asked every interval.
  bool expired(std::int64_t acknowledged, io::Clock::time_point now);
  Duration interval() const { return std::max(limit_ / 16, Duration(1)); }

 private:
  void restart(std::int64_t acknowledged, io::Clock::time_point now);

  Duration limit_;
  io::Clock::duration patience_;
  std::int64_t acknowledged_ = 0;
  io::Clock::time_point since_;  // the client acknowledged something, or there was something to acknowledge again
};

}  // namespace rdm::rdmd

#endif
