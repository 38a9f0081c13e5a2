// SPDX-License-Identifier: MIT
// What the client library takes for a packet, it builds again byte by byte; and a stream gives the
// same packets however it is cut. Input: the direction and the size of the cuts, then the bytes.
#include <string>
#include <vector>

#include "Check.h"
#include "relay/Error.h"
#include "relay/Packet.h"

namespace {

// The packets, and "!" where the stream is nonsense.
std::vector<std::string> Cut(std::string_view stream, size_t piece) {
  relay::PacketCutter cutter;
  std::vector<std::string> packets;
  try {
    for (; !stream.empty(); stream.remove_prefix(std::min(piece, stream.size()))) {
      cutter.Add(stream.substr(0, piece));
      while (auto packet = cutter.Next()) {
        packets.push_back(std::move(*packet));
      }
    }
  } catch (const relay::Error&) {
    packets.emplace_back("!");
  }
  return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const auto direction =
      (data[0] & 1) != 0 ? relay::Direction::kToService : relay::Direction::kFromService;
  const std::string bytes(data + 1, data + size);
  const relay::ParsedPacket parsed = relay::ParsePacket(bytes, direction);
  (void)relay::Describe(parsed.packet, direction);
  if (parsed.problem.empty()) {
    Check(relay::BuildPacket(parsed.packet) == bytes, "the same bytes");
  }
  Check(Cut(bytes, 1 + data[0] / 2) == Cut(bytes, bytes.size() + 1), "the same packets");
  return 0;
}
