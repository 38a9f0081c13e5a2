// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/PacketFramer.h"
#include "relay/ByteQueue.h"

// What a relay service has sent, cut into packets by the service's own code: as long as the length
// field says, or longer for 0 and 1, of which only the length field's bytes are given.
class CommandStream {
 public:
  void Add(std::string_view bytes) { input.Add(bytes); }

  // The next whole packet.
  std::optional<std::string> Next();

  // All that has come is taken, but for the beginning of a packet.
  bool IsEmpty() const { return input.IsEmpty(); }

  // A length of 2 has come: there is no next packet, and the service ends the link.
  bool IsBroken() const { return framer.Wanted() == 0; }

  void Clear();

 private:
  PacketFramer framer;
  relay::ByteQueue input;
};
