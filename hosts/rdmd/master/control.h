// SPDX-License-Identifier: MIT
/// What the master and the front say to each other.
#ifndef HOSTS_RDMD_MASTER_CONTROL_H
#define HOSTS_RDMD_MASTER_CONTROL_H

#include <string>
#include <string_view>

namespace rdm::rdmd {

/// ControlMessage is one message; a kind uses the members that its comment names.
struct ControlMessage {
  enum class Kind : unsigned char {
    // From the master:
    worker,  // a worker is ready: number, generation, and its socket as the packet's descriptor
    begin,   // all workers that were ready before this front have been named: say that it works
    retire,  // end the workers of generations before `generation`
    ended,   // a worker has ended: number, how (text)
    reopen,  // reopen the logs
    reload,  // read certificates and descriptions again
    stop,    // finish the answers under way and end; a second one: end at once
    // From the front:
    kill,   // kill a worker: number
    alive,  // the front is working
    count
  };
  Kind kind = Kind::count;
  int number = 0;
  int generation = 0;
  std::string text;
};

std::string encode(const ControlMessage &message);
/// decode_control throws MalformedPacket.
ControlMessage decode_control(std::string_view bytes);

}  // namespace rdm::rdmd

#endif
