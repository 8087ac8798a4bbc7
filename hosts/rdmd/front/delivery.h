// SPDX-License-Identifier: MIT
/// Sends the answers of a connection, one at a time, as fast as the client takes them: the state `sending`.
#ifndef HOSTS_RDMD_FRONT_DELIVERY_H
#define HOSTS_RDMD_FRONT_DELIVERY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/common/output_queue.h"
#include "hosts/rdmd/front/acknowledgement.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/front/sender.h"
#include "hosts/rdmd/front/spill_budget.h"

namespace rdm::rdmd {

/// Delivery runs on the connection's strand.
class Delivery {
 public:
  class Owner {
   public:
    /// delivered is called when the kernel has the whole answer.
    virtual void delivered() = 0;
    /// delivery_failed is called if the connection is broken, or a file is shorter than its piece.
    virtual void delivery_failed() = 0;
    /// delivery_spoilt is called if a file from which records are sent has changed, or their places are wrong.
    virtual void delivery_spoilt() = 0;

   protected:
    ~Owner() = default;
  };

  Delivery(Channel &channel, Acknowledgement &acknowledgement, Owner &owner)
      : channel_(channel), acknowledgement_(acknowledgement), owner_(owner) {}

  /// set takes an answer: its head, the pieces of its body and what they take of the room in temporary files. The write
  /// deadline begins.
  void set(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share);
  /// send sends the answer. The owner is told of the end, at once or later.
  void send();
  /// drop frees the answer.
  void drop() { answer_.reset(); }

  /// Progress is how much of the body of the answer has been sent, and the time since it was set.
  struct Progress {
    std::int64_t body_bytes;
    io::Clock::duration time;
  };
  /// progress returns the progress of the answer, or std::nullopt if there is none.
  std::optional<Progress> progress() const;

 private:
  void await();

  Channel &channel_;
  Acknowledgement &acknowledgement_;
  Owner &owner_;
  std::optional<Sender> answer_;
  io::Clock::time_point set_at_;
  bool was_blocked_ = false;  // the socket has blocked during this answer
};

}  // namespace rdm::rdmd

#endif
