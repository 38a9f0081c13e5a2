// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

// Cuts a stream into packets by their length fields, and knows neither the stream nor a thread:
// whoever reads puts at most Wanted() bytes to Space() and tells with Take() how many came.
class PacketFramer {
 public:
  PacketFramer();

  uint8_t* Space() { return buffer.data() + taken; }

  // Never a byte of the next packet.
  // Deliberate: the length is not checked. A packet of its length field alone wants 0 more bytes
  // and is never complete; the socket reports such a request as a broken stream.
  // Pinned by CommSocketTest.APacketWithLengthField2EndsTheConnectionWithConnectError.
  uint16_t Wanted() const { return static_cast<uint16_t>(end - taken); }

  // Takes note of `count` bytes, up to Wanted(). True when they complete a packet; it stays until
  // Drop, and only then is there space for more.
  bool Take(uint16_t count);
  void Drop();

  // The packet with its length field, and what that says. All bytes behind it are 0.
  const uint8_t* Packet() const { return buffer.data(); }
  uint16_t Length() const;

 private:
  std::vector<uint8_t> buffer;
  uint32_t taken;
  uint32_t end;  // of the length field, and once that is there of the packet
};
