// SPDX-License-Identifier: MIT
/// Follows what a client acknowledges of the bytes sent to it, in every state of its connection, and ends its patience
/// with a client that acknowledges nothing within the write deadline, or less than the minimum rate.
#ifndef HOSTS_RDMD_FRONT_ACKNOWLEDGEMENT_H
#define HOSTS_RDMD_FRONT_ACKNOWLEDGEMENT_H

#include <cstdint>

#include "hosts/rdmd/front/alarm.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/front/send_rate.h"
#include "hosts/rdmd/front/write_deadline.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// Acknowledgement runs on the connection's strand.
class Acknowledgement {
 public:
  class Owner {
   public:
    /// acknowledged is called in the states `idle` and `lingering`, once the client has acknowledged all. The last
    /// answer was sent at `since`, or the acknowledgement came then.
    virtual void acknowledged(io::Clock::time_point since) = 0;
    /// client_reset is called in these states if the client has reset the connection.
    virtual void client_reset() = 0;
    /// client_too_slow is called in any state if the client acknowledges too little.
    virtual void client_too_slow(Trouble reason) = 0;

   protected:
    ~Owner() = default;
  };

  /// `is_unix` says that the socket is a Unix socket. The channel and the owner are members of the connection.
  Acknowledgement(Channel &channel, const Limits &limits, bool is_unix, Owner &owner);

  /// begin notes that more bytes will be sent: it starts the write deadline and the minimum rate unless they run.
  void begin();
  /// note_send notes that bytes are sent now.
  void note_send() { last_sent_ = io::Clock::now(); }
  /// check_regularly begins to check the client. The checks end when it has acknowledged all.
  void check_regularly() { check_after(deadline_.interval()); }
  bool is_checking() const { return alarm_.is_armed(); }
  /// resume begins to check the client if it has not acknowledged everything before its next request.
  void resume();
  /// await waits until the client has acknowledged all; the owner's `acknowledged` is called at once or later.
  void await();
  /// stop ends the checks.
  void stop() { alarm_.disarm(); }

  /// is_complete returns true if the client has acknowledged all answers, and always for one that is turned away.
  bool is_complete() { return remainder() <= 0; }

 private:
  void check();
  void check_after(Duration time);
  void complete(io::Clock::time_point since);
  std::int64_t remainder();
  std::int64_t taken();

  Channel &channel_;
  Owner &owner_;
  const bool is_unix_;
  WriteDeadline deadline_;
  SendRate rate_;
  Alarm alarm_;
  Duration interval_{};  // of the last check
  io::Clock::time_point last_sent_ = io::Clock::now();
};

}  // namespace rdm::rdmd

#endif
