// SPDX-License-Identifier: MIT
// A byte stream, cut at any places, gives the packets that it consists of, in order. Input: a cut
// size, then the stream; 0 cuts at sizes taken from the stream.
#include <algorithm>
#include <string>
#include <vector>

#include "Check.h"
#include "protocol/PacketFramer.h"

namespace {

struct Packet {
  uint32_t length;  // what its field says
  std::string bytes;
  bool operator==(const Packet&) const = default;
};

size_t BytesFor(uint32_t lengthField) {
  return lengthField < 2 ? lengthField + 65536 : lengthField;
}

// Until the framer wants nothing, or the stream has no more.
std::vector<Packet> Framed(const std::string& stream, size_t cut) {
  std::vector<Packet> packets;
  PacketFramer framer;
  for (size_t at = 0; at < stream.size() && framer.Wanted() != 0;) {
    const size_t piece = cut != 0 ? cut : 1 + static_cast<unsigned char>(stream[at]) % 7;
    const size_t count = std::min<size_t>({piece, stream.size() - at, framer.Wanted()});
    std::copy_n(stream.data() + at, count, framer.Space());
    at += count;
    if (framer.Take(static_cast<uint16_t>(count))) {
      const uint8_t* const bytes = framer.Packet();
      packets.push_back({framer.Length(), {bytes, bytes + BytesFor(framer.Length())}});
      framer.Drop();
    }
  }
  return packets;
}

// The packets of a stream, found by walking over it.
std::vector<Packet> Split(const std::string& stream) {
  std::vector<Packet> packets;
  for (size_t at = 0; at + 2 <= stream.size();) {
    const uint32_t length =
        static_cast<unsigned char>(stream[at]) * 256U + static_cast<unsigned char>(stream[at + 1]);
    if (length == 2 || at + BytesFor(length) > stream.size()) {
      break;
    }
    packets.push_back({length, stream.substr(at, BytesFor(length))});
    at += BytesFor(length);
  }
  return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string stream(data + 1, data + size);
  Check(Framed(stream, data[0]) == Split(stream), "the stream's packets, whole and in order");
  return 0;
}
