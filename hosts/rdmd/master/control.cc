// SPDX-License-Identifier: MIT
#include "hosts/rdmd/master/control.h"

#include "hosts/rdmd/worker/packet.h"

namespace rdm::rdmd {

std::string encode(const ControlMessage &message) {
  PacketWriter writer;
  writer.number(message.kind);
  writer.number(message.number);
  writer.number(message.generation);
  writer.text(message.text);
  return writer.bytes();
}

ControlMessage decode_control(std::string_view bytes) {
  PacketReader reader(bytes);
  ControlMessage message;
  message.kind = reader.choice<ControlMessage::Kind>(static_cast<int>(ControlMessage::Kind::count));
  message.number = reader.number<int>();
  message.generation = reader.number<int>();
  message.text = reader.text();
  reader.end();
  return message;
}

}  // namespace rdm::rdmd
