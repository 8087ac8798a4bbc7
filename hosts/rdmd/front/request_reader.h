// SPDX-License-Identifier: MIT
/// Waits for the next request of a connection and reads its head and its body, each within its time limit: the states
/// `idle`, `head` and `body`.
#ifndef HOSTS_RDMD_FRONT_REQUEST_READER_H
#define HOSTS_RDMD_FRONT_REQUEST_READER_H

#include <cstddef>
#include <string>

#include "hosts/rdmd/front/acknowledgement.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/front/request_head.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// RequestReader runs on the connection's strand.
class RequestReader {
 public:
  class Owner {
   public:
    virtual void head_read(RequestHead head) = 0;
    virtual void head_refused(const Refusal &refusal) = 0;
    virtual void head_late() = 0;
    virtual void body_read(std::string body) = 0;
    virtual void body_late() = 0;
    /// body_lost is called if the connection has ended within the body.
    virtual void body_lost() = 0;
    /// input_ended is called if the connection has ended before a head was complete.
    virtual void input_ended() = 0;

   protected:
    ~Owner() = default;
  };

  RequestReader(Channel &channel, Acknowledgement &acknowledgement, const Limits &limits, Owner &owner);

  /// read_next waits for a request and reads its head. The connection is idle until its first byte.
  void read_next();
  /// read_body reads a body of `length` bytes. If `invited`, the client waits for "100 Continue" before it sends them.
  void read_body(std::size_t length, bool invited);

 private:
  void wait_idle();
  void leave_idle();
  void begin_head();
  void read_head();
  void send_continue(std::size_t done);
  void read_body();

  Channel &channel_;
  Acknowledgement &acknowledgement_;
  const Limits &limits_;
  Owner &owner_;
  HeadReader head_;
  std::size_t body_length_ = 0;
};

}  // namespace rdm::rdmd

#endif
