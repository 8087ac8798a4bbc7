// SPDX-License-Identifier: MIT
/// The TLS handshake of a connection.
#ifndef HOSTS_RDMD_FRONT_HANDSHAKE_H
#define HOSTS_RDMD_FRONT_HANDSHAKE_H

#include "hosts/rdmd/front/acknowledgement.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// Handshake runs on the connection's strand.
class Handshake {
 public:
  enum class Failure {
    late,     // the limit has passed
    lost,     // the client has ended the connection
    plain,    // the client sent a plain HTTP request; the transport is plain now
    refused,  // anything else
  };
  class Owner {
   public:
    virtual void handshake_failed(Failure failure) = 0;

   protected:
    ~Owner() = default;
  };

  Handshake(Channel &channel, Acknowledgement &acknowledgement, Owner &owner)
      : channel_(channel), acknowledgement_(acknowledgement), owner_(owner) {}

  /// begin calls `done` when the handshake is complete, and at once for a plain connection. The connection may make way
  /// meanwhile.
  void begin(Duration limit, Step done);

 private:
  void await();
  void proceed();
  void fail();

  Channel &channel_;
  Acknowledgement &acknowledgement_;
  Owner &owner_;
  Step done_;
};

}  // namespace rdm::rdmd

#endif
