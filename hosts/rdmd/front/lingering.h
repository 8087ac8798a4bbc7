// SPDX-License-Identifier: MIT
/// The end of a connection after its last answer: the state `lingering`.
///
/// A close with unread input sends a reset, on which the client's system discards the unread part of the answer. So the
/// sending side is shut down first, and input is read and dropped until the client has the answer, and for the linger
/// timeout after it.
#ifndef HOSTS_RDMD_FRONT_LINGERING_H
#define HOSTS_RDMD_FRONT_LINGERING_H

#include "hosts/rdmd/front/acknowledgement.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// Lingering runs on the connection's strand.
class Lingering {
 public:
  class Owner {
   public:
    /// lingering_ended is called when the connection is to be closed.
    virtual void lingering_ended() = 0;

   protected:
    ~Owner() = default;
  };

  /// `limit` is the linger timeout.
  Lingering(Channel &channel, Acknowledgement &acknowledgement, Duration limit, Owner &owner)
      : channel_(channel), acknowledgement_(acknowledgement), limit_(limit), owner_(owner) {}

  /// begin shuts down the sending side, when the socket takes the end of the TLS session.
  void begin();
  /// input_ended notes, in any state, that the client has closed its side. The connection ends once it has acknowledged
  /// its answers. Until then it stays open and counts towards the limit; otherwise clients that read nothing could make
  /// the kernel hold any number of answers.
  void input_ended();
  /// acknowledged notes that the client has acknowledged its answers while the connection lingers.
  void acknowledged();

 private:
  void begin_later();
  void discard();

  Channel &channel_;
  Acknowledgement &acknowledgement_;
  const Duration limit_;
  Owner &owner_;
  bool input_ended_ = false;  // the client has closed its side while the connection lingers
};

}  // namespace rdm::rdmd

#endif
