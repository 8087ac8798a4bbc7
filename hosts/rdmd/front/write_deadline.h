// SPDX-License-Identifier: MIT
/// Decides from the acknowledged bytes whether a client still reads its answers.
///
/// A client that reads slowly acknowledges in steps: nothing until a part of its receive buffer is free. If it
/// acknowledges something after a stall, it does read, and its next stall may be several times as long. So a client
/// that reads nothing is detected after 1.75 to 1.9 times the limit, and one that has stalled before after at most 5.1
/// times. Further answers do not extend the time.
///
/// A client with a large receive buffer that reads more slowly than its window reopens is not distinguished from one
/// that reads nothing: its system acknowledges nothing until about an eighth of the buffer is free (a quarter of the
/// default 128 KiB). It is cut off if that takes longer than 1.75 times the limit.
#ifndef HOSTS_RDMD_FRONT_WRITE_DEADLINE_H
#define HOSTS_RDMD_FRONT_WRITE_DEADLINE_H

#include <algorithm>
#include <cstdint>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class WriteDeadline {
 public:
  explicit WriteDeadline(Duration limit) : limit_(limit), timeout_(limit * 7 / 4) {}

  /// begin notes that more bytes will be sent. If the client has acknowledged all of the `sent` bytes, the time starts
  /// now; otherwise it continues from the client's last acknowledgement.
  void begin(std::int64_t acknowledged, std::int64_t sent, io::Clock::time_point now);
  /// expired returns true if the client has acknowledged nothing for too long at `now`. Call it every interval().
  bool expired(std::int64_t acknowledged, io::Clock::time_point now);
  Duration interval() const { return std::max(limit_ / 16, Duration(1)); }

 private:
  void restart(std::int64_t acknowledged, io::Clock::time_point now);

  Duration limit_;
  io::Clock::duration timeout_;
  std::int64_t acknowledged_ = 0;
  io::Clock::time_point since_;  // the last acknowledgement, or the time from which there was something to acknowledge
};

}  // namespace rdm::rdmd

#endif
